#!/usr/bin/env bash
# Builds the tool and lets a real file travel, line by line, through a durable queue and back.
set -euo pipefail
cd "$(dirname "$0")"

scripts/install_packages.sh build
log=$(mktemp)
work=$(mktemp -d)
trap 'rm -rf "$log" "$work"' EXIT
echo "Building (release) ..."
if ! cmake --workflow --preset release >"$log" 2>&1; then
  tail -n 40 "$log" >&2
  echo "The build failed." >&2
  exit 1
fi

export PATH="$PWD/build/release/bin:$PATH" BXM_HOME="$work/managers"
input=/var/lib/dpkg/status
lines=$(wc -l <"$input")

# Shows a command, runs it, and tells the rate when it moved the whole file.
show() { printf '\n$ %s\n' "$1"; }
timed() {
  show "$1"
  local start=$EPOCHREALTIME
  bash -c "$1"
  local end=$EPOCHREALTIME
  awk -v s="$start" -v e="$end" -v n="$lines" \
    'BEGIN { printf "  %d lines in %.3f s: %d lines a second\n", n, e - s, n / (e - s) }'
}

show "ferry -C JOBS"
ferry -C JOBS
timed "ferry -f JOBS < $input"
show "ferry -s JOBS"
ferry -s JOBS
show "ferry -p JOBS -c 5"
ferry -p JOBS -c 5
timed "ferry -r JOBS > $work/back"
show "cmp $input back"
cmp "$input" "$work/back"
echo "  the same, byte for byte"
show "ferry -X JOBS"
ferry -X JOBS
