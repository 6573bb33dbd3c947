#!/usr/bin/env bash
# Builds the Debian packages into build/packages. With --test they are also tried, in a throw-away Debian.
set -euo pipefail
umask 022
cd "$(dirname "$0")"
[[ $# -eq 0 || $* == --test ]] || { echo "usage: $0 [--test]" >&2; exit 2; }

scripts/install_packages.sh package
log=$(mktemp)
trap 'rm -f "$log"' EXIT
quietly() {
  "$@" >"$log" 2>&1 && return
  tail -n 40 "$log" >&2
  echo "Failed: $*" >&2
  exit 1
}

echo "Building (package) ..."
flags() { dpkg-buildflags --get "$1"; }
CFLAGS="$(flags CFLAGS) $(flags CPPFLAGS)" CXXFLAGS="$(flags CXXFLAGS) $(flags CPPFLAGS)" \
  LDFLAGS=$(flags LDFLAGS) quietly cmake --fresh --preset package
quietly cmake --build --preset package
rm -rf build/package/*.deb build/packages
quietly cpack --config build/package/CPackConfig.cmake -B build/package
mkdir build/packages
mv build/package/*.deb build/packages
ls build/packages/*.deb

[[ $# -eq 0 ]] || tests/packaging/run
