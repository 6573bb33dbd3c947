#!/usr/bin/env bash
# A stream spread over several queues, each with a consumer of its own. A queue that has 500 records
# gets no more until its consumer is through with some; when all have, the stream waits.
set -euo pipefail

for queue in EAST WEST; do bxadm queue create "$queue" --max-depth 100000; done
cat >ferry.ini <<'END'
[SPREAD]
QOut0=EAST
QOut1=WEST
MessageCountMax=500
FullCountMax=2
FullPause=100
END

# Consumers that need their time.
touch running
consumer() {
  while [[ -e running ]] || (($(bxadm queue show "$1" --json | grep -o '"depth": [0-9]*' | tr -dc 0-9))); do
    ferry -r "$1" -c 250 >>"$1.txt"
    sleep 0.05
  done
}
consumer EAST & consumer WEST &

seq 1 5000 | ferry -i SPREAD
rm running
wait
sort -n EAST.txt WEST.txt | cmp - <(seq 1 5000) && echo "all 5000 arrived, each once"
