#!/usr/bin/env bash
# From a folder of one machine into a database that many share. STORE is where the database is, for
# instance postgresql://db1,db2/queues.
set -euo pipefail

bxadm manager create ORDERS --default
bxadm queue create NEW --max-depth 1000000
seq -f 'order %g' 1 50000 | ferry -f NEW

bxadm manager create DBORDERS --store "$STORE"
bxadm manager copy ORDERS DBORDERS # may be interrupted and started again
bxadm queue list -m DBORDERS
bxadm manager delete ORDERS --force
bxadm manager default DBORDERS
ferry -r NEW -c 1 # works on the database from here on, as on all other machines
