#!/usr/bin/env bash
# What no compiler checks: that a folder includes only the folders it may, and that every test file
# is registered.
set -euo pipefail
cd "$(dirname "$0")/.."
faults=0
fault() { echo "$1" >&2; faults=1; }

# folder: what its files may include besides itself and the outside.
declare -A may=(
  [include/bx]=""
  [ferry/text]=""
  [ferry/errors]="ferry/text"
  [ferry/logging]="ferry/text ferry/errors"
  [ferry/config]="ferry/text ferry/errors ferry/logging"
  [ferry/queue]="bx ferry/text ferry/errors ferry/logging"
  [ferry/xml]="ferry/text ferry/errors"
  [ferry/driver]="ferry/text ferry/errors ferry/logging ferry/config ferry/queue"
  [manager/base]="bx"
  [manager/store]="bx manager/base"
  [manager/store/log]="bx manager/base manager/store"
  [manager/store/postgres]="bx manager/base manager/store"
  [manager/bindings]="bx manager/base manager/store manager/store/postgres"
  [manager/engine]="bx manager/base manager/store"
  [manager/api]="bx manager/base manager/engine"
  [manager/view]="bx manager/base manager/store manager/engine"
  [manager/console]="bx manager/base manager/store manager/engine manager/view"
  [manager/admin]="bx manager/base manager/store manager/engine manager/view manager/console"
)
# A circle: some folders that no order puts behind what they include.
left=" ${!may[*]} "
for ((round = ${#may[@]}; round > 0; --round)); do
  for folder in $left; do
    waits=0
    for of in ${may[$folder]}; do [[ $left == *" $of "* ]] && waits=1; done
    [[ $waits == 1 ]] || left=${left/ $folder / }
  done
done
[[ -z ${left// /} ]] || fault "these folders include each other in a circle:$left"

for folder in "${!may[@]}"; do
  while IFS=: read -r file included; do
    from=$(dirname "$included")
    [[ $from == "$folder" || $from == "${folder#include/}" ]] && continue
    [[ " ${may[$folder]} " == *" $from "* ]] || fault "$file may not include $included"
  done < <(grep -HoP '^\s*#include "\K[^"]+' "$folder"/*.h "$folder"/*.cpp 2>/dev/null || true)
done
for folder in $(find ferry manager include -mindepth 1 -type d); do
  [[ -v may[$folder] ]] || [[ -z $(find "$folder" -maxdepth 1 \( -name '*.h' -o -name '*.c' -o -name '*.cpp' \)) ]] ||
    fault "$folder is not in the list of scripts/check_layout.sh"
done

# With the commands of a configured build: every source is compiled by something.
if [[ $# -gt 0 ]]; then
  while read -r file; do
    grep -qF "\"$PWD/$file\"" "$1" || fault "$file is registered nowhere"
  done < <(find tests bench ferry manager \( -name '*.cpp' -o -name '*.c' \))
fi

lines() { find "$@" \( -name '*.cpp' -o -name '*.h' -o -name '*.sh' -o -name '*.transcript' -o -path '*/run' \) -type f -print0 | xargs -0 cat | wc -l; }
tests=$(lines tests) all=$(lines tests ferry manager include bench scripts)
echo "tests: $tests of $all lines, $((100 * tests / all)) %"

exit "$faults"
