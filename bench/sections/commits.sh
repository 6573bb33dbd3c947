# Commits of one record each, next to what the disk gives: a write and a flush of as many files by as
# many processes.
commit_counts="1 2 4 8"

commits_run() {
  local k n
  n=$(scaled 4000)
  queue Q Q0 Q1 Q2 Q3 Q4 Q5 Q6 Q7
  for k in $commit_counts; do
    sample "commits.$k.disk" "$tools/measure" -n "$k" -- "$tools/flush_rate" "$work/other/flush{}" "$n"
    sample "commits.$k.one" "$tools/measure" -n "$k" -- "$tools/commit_probe" Q -n "$n"
    sample "commits.$k.own" "$tools/measure" -n "$k" -- "$tools/commit_probe" "Q{}" -n "$n"
  done
  "$bxadm" manager alter DEFAULT --sync full >/dev/null
  sample commits.synced timed "$n" -- "$ferry" -r Q -c "$n"
  have_sqlite || return 0
  sample commits.put-full rows "$n" put
  sample commits.take-full rows "$n"
}

# rows COUNT [put]: seconds.
rows() { "$tools/sqlite_queue" "$work/other/sqlite" "$1" full ${2:+put} 2>&1 >/dev/null; }

measure_commits() { each_run commits_run; }

table_commits() {
  local k n
  n=$(scaled 4000)
  heading "Commits of one record, all writers, per second" "writers" "flushes of the disk" \
    "on one queue" "to the disk" "each on its own" "to the disk"
  for k in $commit_counts; do
    line "$k" "$(rate "commits.$k.disk" $((n * k)))" "$(rate "commits.$k.one" $((n * k)))" \
      "$(ratio "commits.$k.disk" "commits.$k.one")" "$(rate "commits.$k.own" $((n * k)))" \
      "$(ratio "commits.$k.disk" "commits.$k.own")"
  done
  heading "One record at a time, synchronous" "work" "per second" "to the disk"
  commits_line "put and commit" commits.1.one
  commits_line "read, manager with --sync full" commits.synced
  commits_line "SQLite, one-row inserts, WAL, synchronous=FULL" commits.put-full
  commits_line "SQLite, one-row takes, WAL, synchronous=FULL" commits.take-full
}

# commits_line LABEL METRIC
commits_line() {
  line "$1" "$(rate "$2" "$(scaled 4000)")" "$(ratio commits.1.disk "$2")"
}
