# What a manager's folder holds, in MiB, a second after many records went in and out, while loader and
# reader are still connected: without anything else, and with ten messages older than all of them.
space_run() {
  local n
  n=$(scaled 10000000)
  queue Q OLD
  sample space.empty passed_through "$n"
  untimed 10 -i "$(records 10 100)" -- "$ferry" -f OLD
  sample space.old passed_through "$n"
}

passed_through() {
  rm -f "$work/size"
  { "$tools/records" make "$1" 100 && trickle; } | "$ferry" -f Q 2>>"$errors" &
  until [ "$("$ferry" -p Q -c 1 2>>"$errors")" ]; do sleep 0.01; done
  "$ferry" -r Q 2>>"$errors" | {
    head -c $(($1 * 100)) >/dev/null
    sleep 1
    du -sm "$BXM_HOME" | cut -f1 >"$work/size"
    cat >/dev/null
  }
  wait
  cat "$work/size"
}

# A record now and then keeps the reader waiting for the next.
trickle() {
  until [ -e "$work/size" ]; do
    sleep 0.05
    echo more
  done
}

measure_space() { each_run space_run; }

table_space() {
  heading "The manager's folder after $(scaled 10000000) records went through, MiB" "left" "MiB"
  line "nothing" "$(spread space.empty)"
  line "10 messages, older than all" "$(spread space.old)"
}
