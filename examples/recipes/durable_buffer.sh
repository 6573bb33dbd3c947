#!/usr/bin/env bash
# A buffer on the disk before a slow consumer: what was taken in survives a crash of the producer, of
# the consumer and of the machine.
set -euo pipefail

bxadm queue create BUFFER --max-depth 1000000
seq -f 'event %g' 1 100000 | ferry -f BUFFER # fast, whatever the consumer does

# The consumer takes what it is up to; the rest stays.
ferry -r BUFFER -c 1000 | tail -n 1
bxadm queue list
ferry -r BUFFER | tail -n 1
