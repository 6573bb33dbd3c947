#!/usr/bin/env bash
# Builds and runs all tests: debug with warnings and clang-tidy findings as errors, then under the
# address, undefined-behaviour and thread sanitizers. ./test.sh dev runs only that preset.
set -euo pipefail
cd "$(dirname "$0")"

scripts/install_packages.sh test
presets=("$@")
[[ ${#presets[@]} -gt 0 ]] || presets=(dev asan tsan)
for preset in "${presets[@]}"; do
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  [[ $preset != dev ]] || scripts/check_layout.sh build/dev/compile_commands.json
  log=$(mktemp)
  if ! cmake --build --preset "$preset" >"$log" 2>&1; then
    grep -E -A3 'error:|FAILED:' "$log" | head -n 60 >&2 || tail -n 60 "$log" >&2
    exit 1
  fi
  rm -f "$log"
  ctest --preset "$preset"
  # A test that misses its means passes; here it can be seen.
  sed -n 's/^\[  SKIPPED \] \([^ ]*\)$/Skipped: \1/p' "build/$preset/Testing/Temporary/LastTest.log"
done
