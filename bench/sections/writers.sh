# Several writers at once: on one queue, and each on its own.
writer_counts="1 2 4 8"

writers_run() {
  local k n
  queue Q Q0 Q1 Q2 Q3 Q4 Q5 Q6 Q7
  for k in $writer_counts; do
    n=$(($(scaled 400000) / k))
    sample "writers.$k.one" timed "$n" -n "$k" -i "$(records "$n" 100)" -- "$ferry" -f Q
    sample "writers.$k.own" timed "$n" -n "$k" -i "$(records "$n" 100)" -- "$ferry" -f "Q{}"
  done
}

measure_writers() { each_run writers_run; }

table_writers() {
  local k n
  heading "Writers at once: records of 100 bytes, all of them, per second" \
    "writers" "on one queue" "each on its own"
  for k in $writer_counts; do
    n=$(($(scaled 400000) / k * k))
    line "$k" "$(rate "writers.$k.one" "$n")" "$(rate "writers.$k.own" "$n")"
  done
}
