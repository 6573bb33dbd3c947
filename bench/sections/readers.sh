# Several readers at once on one queue.
reader_counts="1 2 4 8"

readers_run() {
  local k n
  queue Q
  for k in $reader_counts; do
    n=$(($(scaled 400000) / k))
    untimed $((n * k)) -i "$(records $((n * k)) 100)" -- "$ferry" -f Q
    sample "readers.$k" timed "$n" -n "$k" -- "$ferry" -r Q -c "$n"
  done
}

measure_readers() { each_run readers_run; }

table_readers() {
  local k
  heading "Readers at once on one queue: records of 100 bytes, all of them" "readers" "records/s"
  for k in $reader_counts; do
    line "$k" "$(rate "readers.$k" $(($(scaled 400000) / k * k)))"
  done
}
