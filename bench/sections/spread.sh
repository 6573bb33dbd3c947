# One stream spread over managers in several database servers. What bounds a server here is its disk, whose
# flushes are made slow, and not the processors that all of them share: as if each were a machine.
spread_flush_us=60000
spread_counts="1 2 3"

# spread_run COUNT RECORDS
spread_run() {
  sample "spread.$1" timed "$2" -n "$1" -i "$(records "$2" 100)" -- \
    "$ferry" -f Q -m "S{}"
}

measure_spread() {
  local k n
  [ -x "$pg_programs/postgres" ] || return 0
  export BXM_HOME=$work/spread
  mkdir "$BXM_HOME"
  for k in 1 2 3; do
    start_postgres "$k" LD_PRELOAD="$tools/slow_disk.so" BENCH_FLUSH_US=$spread_flush_us || return 0
    "$bxadm" manager create "S$((k - 1))" --store "$(pg_uri socket "$k")" >/dev/null
    "$bxadm" queue create Q -m "S$((k - 1))" --max-depth 100000000 >/dev/null
  done
  n=$(scaled 600000)
  for k in $spread_counts; do by_client spread spread_run "$k" $((n / k)); done
}

table_spread() {
  local k n
  [ -d "$work/spread" ] || { echo "No PostgreSQL server can be started: no figures of one." && return; }
  n=$(scaled 600000)
  heading "A stream over managers in several servers, each flush ${spread_flush_us} µs longer" \
    "servers" "records" "s" "records/s"
  for k in $spread_counts; do
    line "$k" $((n / k * k)) "$(spread "spread.$k")" "$(rate "spread.$k" $((n / k * k)))"
  done
}
