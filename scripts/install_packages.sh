#!/usr/bin/env bash
# install_packages.sh build|test|bench|package|package-test: installs the Debian packages that are missing. Says in one line
# what is missing where it cannot.
set -euo pipefail

build=(g++ cmake ninja-build libicu-dev libxerces-c-dev libxalan-c-dev libpq-dev libcli11-dev
       nlohmann-json3-dev libfmt-dev libncurses-dev libcpp-httplib-dev)
# The tests compile the benchmark programs too, so that none of them rots.
test=(libgtest-dev libgmock-dev clang-tidy libsqlite3-dev postgresql man-db mandoc zsh bash-completion
      pkg-config python3 python3-selenium chromium chromium-driver fonts-dejavu-core prometheus)
bench=(sqlite3 libsqlite3-dev python3)
package=(dpkg-dev file)
case "${1:-}" in
  build) wanted=("${build[@]}") ;;
  test) wanted=("${build[@]}" "${test[@]}") ;;
  bench) wanted=("${build[@]}" "${bench[@]}") ;;
  package) wanted=("${build[@]}" "${package[@]}") ;;
  package-test) wanted=(lintian) ;;
  *) echo "usage: $0 build|test|bench|package|package-test" >&2; exit 2 ;;
esac

missing=()
for package in "${wanted[@]}"; do
  state=$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null || true)
  [[ $state == *"ok installed"* ]] || missing+=("$package")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

become=()
if [[ $(id -u) -ne 0 ]]; then
  if ! command -v sudo >/dev/null; then
    echo "Missing packages (install them as root): ${missing[*]}" >&2
    exit 1
  fi
  become=(sudo)
fi
if ! command -v apt-get >/dev/null; then
  echo "Missing packages, and no apt-get to install them with: ${missing[*]}" >&2
  exit 1
fi
echo "Installing: ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { "${become[@]}" apt-get update && "${become[@]}" env DEBIAN_FRONTEND=noninteractive \
       apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
  tail -n 5 "$log" >&2
  echo "Could not install: ${missing[*]}" >&2
  exit 1
fi
