# The load on a disk whose flushes take longer.
slow_flush_us=3500

slow_run() {
  local n
  n=$(scaled 1000000)
  queue Q
  sample slow.load slowly timed "$n" -i "$(records "$n" 100)" -- "$ferry" -f Q
  sample slow.read slowly timed "$n" -- "$ferry" -r Q -c "$n"
}

slowly() { LD_PRELOAD=$tools/slow_disk.so BENCH_FLUSH_US=$slow_flush_us "$@"; }

measure_slow() { each_run slow_run; }

table_slow() {
  local n what
  n=$(scaled 1000000)
  heading "Each flush $slow_flush_us µs longer: $n records of 100 bytes" "work" "s" "records/s"
  for what in load read; do
    line "$what" "$(spread "slow.$what")" "$(rate "slow.$what" "$n")"
  done
}
