#!/usr/bin/env bash
# A job queue with several workers: each job is done by one of them.
set -euo pipefail

ferry -C JOBS
seq -f 'job %g' 1 200 | ferry -f JOBS

# A worker takes one job at a time until there is none. In production it would sleep a moment then and
# look again.
worker() {
  while job=$(ferry -r JOBS -c 1 2>>log) && [[ $job ]]; do
    echo "$job done by $1"
  done
}
for name in anna ben carla; do worker "$name" >"done.$name" & done
wait

echo "$(cat done.* | cut -d ' ' -f 1-3 | sort -u | wc -l) different jobs were done,"
echo "$(cat done.* | wc -l) in all, by $(find . -name 'done.*' -size +0 | wc -l) workers."
ferry -X JOBS
