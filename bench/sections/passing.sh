# A queue in PostgreSQL that holds 1,000 records while many pass: what the first cost, and the last.
passing_count=5000000
passing_unit=500

passing_run() {
  pg_fresh Q
  by_client socket "$tools/paced" pass queue Q "$(scaled $passing_count)" "$passing_unit" \
    2>>"$errors" >"$work/passed" || die "the records do not pass"
  awk '{ print "passing." NR, $1 }' "$work/passed" >>"$samples"
}

measure_passing() {
  have_postgres || return 0
  passing_run
}

table_passing() {
  local part
  have_postgres || { echo "No PostgreSQL server can be started: no figures of one." && return; }
  heading "A queue that holds 1,000 records, $passing_unit a commit" "records" "s" "records/s"
  for part in $(awk 'NR == 1 || NR % 10 == 0 { print NR }' "$work/passed"); do
    line "$(((part - 1) * 100000)) to $((part * 100000))" "$(spread "passing.$part")" \
      "$(rate "passing.$part" 100000)"
  done
}
