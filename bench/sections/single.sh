# Start to exit of an operation on one record, as the median of some in a row: a flush has long tails.
repeats=20

# single METRIC COMMAND...
single() {
  local metric=$1
  shift
  sample "$metric" "$tools/measure" -e "$errors" -r "$repeats" -i "$(records 1 100)" -- "$@"
  sample "$metric.hello" "$tools/measure" -r "$repeats" -- "$tools/hello_icu"
}

single_run() {
  queue Q
  "$tools/hello_icu" >/dev/null
  single single.put "$ferry" -f Q
  single single.status "$ferry" -s Q
  single single.peek "$ferry" -p Q -c 1
  single single.read "$ferry" -r Q -c 1
  single single.create "$ferry" -C "NEW{}"
  single single.delete "$ferry" -X "NEW{}"
}

measure_single() { each_run single_run; }

table_single() {
  local metric
  heading "One record, start to exit" "operation" "ms" "hello-world with ICU, ms" "ratio"
  for metric in put status peek read create delete; do
    line "$metric" "$(spread "single.$metric" 1000)" "$(spread "single.$metric.hello" 1000)" \
      "$(ratio "single.$metric" "single.$metric.hello")"
  done
}
