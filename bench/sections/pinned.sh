# What becomes of a queue in PostgreSQL while somebody else in the database holds a snapshot open, beside a
# plain queue: two writers, two readers, four records a commit each (one by one, the flushes of this many
# commits would decide). Not a matter of runs, but of time: minutes before, during and after.
pinned_minutes="1 10 1"
pinned_rate=2000
pinned_unit=4

# dead_rows LIKE: dead rows and MiB of the tables with such names.
dead_rows() {
  psql "$(pg_uri socket)" -XAtF ' ' -c "SELECT pg_stat_force_next_flush()" -c "SELECT sum(n_dead_tup),
    round(sum(pg_total_relation_size(relid)) / 1048576) FROM pg_stat_user_tables
    WHERE relname LIKE '$1'" | tail -1
}

pinned_seconds() { echo $(($1 * 60 / scale > 20 ? $1 * 60 / scale : 20)); }

# pinned_run KIND NAME TABLES
pinned_run() {
  local kind=$1 name=$2 tables=$3 before during after all pin
  read -r before during after <<<"$pinned_minutes"
  before=$(pinned_seconds "$before") during=$(pinned_seconds "$during") after=$(pinned_seconds "$after")
  all=$((before + during + after))
  pg_fresh Q
  psql "$(pg_uri socket)" -qc "VACUUM"
  for k in 1 2; do
    by_client socket "$tools/paced" get "$kind" "$name" "$all" "$pinned_unit" >"$work/get.$kind.$k" &
    by_client socket "$tools/paced" put "$kind" "$name" "$all" $((pinned_rate / 2)) "$pinned_unit" &
  done
  sleep "$before"
  note "pinned.$kind.before" "$(dead_rows "$tables" | tr ' ' /)"
  { echo "BEGIN ISOLATION LEVEL REPEATABLE READ; SELECT count(*) FROM pg_class;" && sleep "$during"; } |
    psql "$(pg_uri socket)" -q >/dev/null &
  pin=$!
  wait "$pin"
  note "pinned.$kind.during" "$(dead_rows "$tables" | tr ' ' /)"
  sleep "$after"
  note "pinned.$kind.after" "$(dead_rows "$tables" | tr ' ' /)"
  wait %% 2>/dev/null || true
  sleep 2
  pinned_part "$kind" before 0 "$before"
  pinned_part "$kind" during "$before" $((before + during))
  pinned_part "$kind" end $((before + during - (during > 120 ? 60 : 20))) $((before + during))
  pinned_part "$kind" after $((before + during)) "$all"
}

# pinned_part KIND PART FROM TO: rate and latency of the readers within these seconds.
pinned_part() {
  local part=pinned.$1.$2
  awk -v from="$3" -v to="$4" -v part="$part" '
    $1 > from && $1 <= to { n += $2; median[++k] = $3; late[k] = $4; ends[$1] = 1 }
    END { for (e in ends) ++windows
      asort_(median, k); asort_(late, k)
      print part ".rate", n / (windows * 10); print part ".median", median[int((k + 1) / 2)]
      print part ".late", late[int((k + 1) / 2)] }
    function asort_(a, n, i, j, x) {
      for (i = 2; i <= n; ++i) for (j = i; j > 1 && a[j - 1] + 0 > a[j] + 0; --j) {
        x = a[j]; a[j] = a[j - 1]; a[j - 1] = x } }' "$work/get.$1".? >>"$samples"
}

measure_pinned() {
  have_postgres || return 0
  pinned_run queue Q 'messages_%'
  pinned_run table "$(pg_uri socket)" plain_queue
}

table_pinned() {
  local kind part
  have_postgres || { echo "No PostgreSQL server can be started: no figures of one." && return; }
  heading "$pinned_rate records a second in and out, and a snapshot held open for a while" \
    "" "" "gets/s" "put to get, median ms" "99 %, ms" "dead rows/MiB at its end"
  for kind in queue table; do
    for part in before during end after; do
      line "$kind" "${part/end/its last minute}" "$(spread "pinned.$kind.$part.rate")" \
        "$(spread "pinned.$kind.$part.median")" "$(spread "pinned.$kind.$part.late")" \
        "$(sed -n "s/^pinned\.$kind\.$part //p" "$samples")"
    done
  done
}
