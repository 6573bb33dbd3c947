# Ten million records: memory, and what the first and the last of them cost.
big_edge=100000

big_run() {
  local n edge
  n=$(scaled 10000000) edge=$(scaled $big_edge)
  queue Q
  paced load "$n" "$edge" load_paced
  note big.index "$(du -cB1 "$BXM_HOME"/*/index-* | awk -v n="$n" 'END { print $1 / n }')"
  paced read "$n" "$edge" read_paced
}

load_paced() { "$tools/records" make "$1" 100 "$2" | "$ferry" -f Q 2>>"$errors"; }
read_paced() { "$ferry" -r Q -c "$1" 2>>"$errors" | "$tools/records" sink "$1" "$2"; }

# paced METRIC COUNT EDGE COMMAND
paced() {
  local begin first last
  sync -f "$work"
  begin=$EPOCHREALTIME
  "$4" "$2" "$3" 2>"$work/pace" || die "$1 of $2 records failed"
  note "big.$1" "$(awk "BEGIN { print $EPOCHREALTIME - $begin }")"
  read -r first last <"$work/pace"
  note "big.$1.first" "$first"
  note "big.$1.last" "$last"
  echo "  big.$1: first $first, last $last" >&2
}

# Memory is looked at in runs of its own: looking slows down who is looked at.
big_memory_run() {
  local n in
  n=$(scaled 10000000)
  in=$(records "$n" 100)
  queue Q Q0 Q1 Q2 Q3
  memory load "$n" -i "$in" -- "$ferry" -f Q
  memory peek "$n" -- "$ferry" -p Q -c "$n"
  memory read "$n" -- "$ferry" -r Q -c "$n"
  cd "$work/other"
  memory distribution $((n / 4)) -i "$in" -- "$ferry" -i SPREAD
  cd "$work"
  memory purge $((n / 4)) -- "$ferry" -k Q0
}

# memory METRIC COUNT ...
memory() {
  local metric=$1 private anonymous
  shift
  read -r private anonymous < <(timed "$1" -m "${@:2}")
  note "memory.$metric.private" "$private"
  note "memory.$metric.anonymous" "$anonymous"
  echo "  memory.$metric $private $anonymous" >&2
}

measure_big() {
  each_run big_run
  each_run big_memory_run
}

table_big() {
  local n edge what
  n=$(scaled 10000000) edge=$(scaled $big_edge)
  heading "$n records of 100 bytes" "work" "s" "records/s" "first $edge, s" "last $edge, s" \
    "last to first"
  for what in load read; do
    line "$what" "$(spread "big.$what")" "$(rate "big.$what" "$n")" "$(spread "big.$what.first")" \
      "$(spread "big.$what.last")" "$(ratio "big.$what.last" "big.$what.first")"
  done
  echo
  echo "Shared index: $(spread big.index) bytes a message."
  heading "Memory with $n records of 100 bytes, most at any time, MiB" "work" \
    "private (clean and dirty)" "of it anonymous"
  for what in load peek read distribution purge; do
    line "$what" "$(spread "memory.$what.private" 0.0009765625)" \
      "$(spread "memory.$what.anonymous" 0.0009765625)"
  done
}
