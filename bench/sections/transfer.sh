# Whole processes that move many records, each next to its floor.
transfer_sizes="1000000:100 100000:1024 2000:102400"

# transfer_run COUNT SIZE
transfer_run() {
  transfers "$1" "$2" ""
  by_other transfers "$1" "$2" .other
  floors "$1" "$2"
}

# transfers COUNT SIZE SUFFIX
transfers() {
  local n=$1 in name=$1:$2$3
  in=$(records "$1" "$2")
  queue Q Q0 Q1 Q2 Q3
  sample "load.$name" timed "$n" -i "$in" -- "$ferry" -f Q
  sample "peek.$name" timed "$n" -- "$ferry" -p Q -c "$n"
  sample "read.$name" timed "$n" -- "$ferry" -r Q -c "$n"
  untimed "$n" -i "$in" -- "$ferry" -f Q
  sample "purge.$name" timed "$n" -- "$ferry" -k Q -c "$n"
  # The tool reads the queues' names from a file in its folder.
  cd "$work/other"
  sample "distribution.$name" timed $((n / 4)) -i "$in" -- "$ferry" -i SPREAD
  cd "$work"
}

floors() {
  local what
  for what in load peek read; do
    sample "$what.$1:$2.floor" timed "$1" -i "$(records "$1" "$2")" -- \
      "$tools/floor" "$what" "$BXM_HOME/floor"
  done
  rm "$BXM_HOME/floor"
}

each_size() {
  local size
  for size in $transfer_sizes; do
    # Four queues share the records evenly.
    "$@" $(($(scaled "${size%:*}") / 4 * 4)) "${size#*:}"
  done
}

measure_transfer() { each_size each_run transfer_run; }

table_transfer() {
  heading "Many records, whole processes" "work" "records" "s" "records/s" "floor, s" "ratio" \
    "other build, s" "times as fast"
  local what
  for what in load peek read purge distribution; do each_size transfer_lines "$what"; done
}

# transfer_lines WHAT COUNT SIZE
transfer_lines() {
  local metric=$1.$2:$3
  line "$1" "$2 x $3 B" "$(spread "$metric")" "$(rate "$metric" "$2")" \
    "$(spread "$metric.floor")" "$(ratio "$metric" "$metric.floor")" \
    "$(spread "$metric.other")" "$(ratio "$metric.other" "$metric")"
}
