#!/usr/bin/env bash
# A dead-letter queue: what cannot be worked off is put aside, looked at, and tried again.
set -euo pipefail

for queue in ORDERS ORDERS.DEAD; do bxadm queue create "$queue"; done
printf 'order %s\n' 1 2 three 4 | ferry -f ORDERS

work() { [[ $1 =~ ^order\ [0-9]+$ ]]; }
while order=$(ferry -r ORDERS -c 1) && [[ $order ]]; do
  if work "$order"; then echo "$order: shipped"; else ferry -f ORDERS.DEAD <<<"$order"; fi
done

bxadm queue list
ferry -p ORDERS.DEAD
# Once the fault is mended they go back, as they are.
bxadm move ORDERS.DEAD ORDERS --matching three
