# Whole processes that move many records, each next to its floor.
transfer_sizes="1000000:100 100000:1024 2000:102400"

# transfer_run COUNT SIZE
transfer_run() {
  local n=$1 in store=$work/other/floor name=$1:$2
  in=$(records "$1" "$2")
  queue Q Q0 Q1 Q2 Q3
  sample "load.$name" timed "$n" -i "$in" -- "$ferry" -f Q
  sample "load.$name.floor" timed "$n" -i "$in" -- "$tools/floor_load" "$store"
  sample "peek.$name" timed "$n" -- "$ferry" -p Q -c "$n"
  sample "peek.$name.floor" timed "$n" -- "$tools/floor_peek" "$store"
  sample "read.$name" timed "$n" -- "$ferry" -r Q -c "$n"
  sample "read.$name.floor" timed "$n" -- "$tools/floor_read" "$store"
  untimed "$n" -i "$in" -- "$ferry" -f Q
  rm -f "$store"*
  untimed "$n" -i "$in" -- "$tools/floor_load" "$store"
  sample "purge.$name" timed "$n" -- "$ferry" -k Q -c "$n"
  sample "purge.$name.floor" timed "$n" -- "$tools/floor_purge" "$store"
  rm -f "$store"*
  # The tool reads the queues' names from a file in its folder.
  cd "$work/other"
  sample "distribution.$name" timed $((n / 4)) -i "$in" -- "$ferry" -i SPREAD
  sample "distribution.$name.floor" timed "$n" -i "$in" -- "$tools/floor_load" "$store" 4
  cd "$work"
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
  heading "Many records, whole processes" "work" "records" "s" "records/s" "floor, s" "ratio"
  local what
  for what in load peek read purge distribution; do each_size transfer_lines "$what"; done
}

# transfer_lines WHAT COUNT SIZE
transfer_lines() {
  local metric=$1.$2:$3
  line "$1" "$2 x $3 B" "$(spread "$metric")" "$(rate "$metric" "$2")" \
    "$(spread "$metric.floor")" "$(ratio "$metric" "$metric.floor")"
}
