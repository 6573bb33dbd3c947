# How long another writer's commit of one record takes, alone and while a large load runs.
latency_run() {
  local n
  n=$(scaled 10000000)
  queue Q PROBE
  probe alone sleep 3
  probe load -i "$(records "$n" 100)" "$ferry" -f Q
}

# probe METRIC COMMAND...
probe() {
  local metric=$1 median late longest commits
  shift
  sync -f "$work"
  read -r median late longest commits < <("$tools/commit_probe" PROBE "$@" 2>>"$errors") ||
    die "the probe of commits failed"
  note "latency.$metric.median" "$median"
  note "latency.$metric.late" "$late"
  note "latency.$metric.longest" "$longest"
  echo "  latency.$metric $median $late $longest, $commits commits" >&2
}

measure_latency() { each_run latency_run; }

table_latency() {
  heading "Commit of one record by another writer, ms" "meanwhile" "median" "99 %" "longest"
  latency_line "nothing" alone
  latency_line "a load of $(scaled 10000000) records" load
}

# latency_line LABEL METRIC
latency_line() {
  line "$1" "$(spread "latency.$2.median" 1000)" "$(spread "latency.$2.late" 1000)" \
    "$(spread "latency.$2.longest" 1000)"
}
