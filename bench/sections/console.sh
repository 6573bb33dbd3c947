# What a console costs those who put, while nobody looks and while many do, and what the many cost it.
console_queues=300 console_streams=200 console_slow=50

console_run() {
  local n clients events longest
  queue PROBE
  for n in $(seq $((console_queues - 1))); do queue "Q$n"; done
  "$tools/commit_probe" PROBE -n "$(scaled 20000)" >/dev/null # the first log files are made new
  console_start
  sleep 16 # until nobody has looked for a while
  # Stopped in between, so that what else changes meanwhile meets both.
  for n in 1 2 3; do
    kill -STOP $console && console_probe none && kill -CONT $console
    console_probe unwatched
  done
  console_idle
  console_clients $console_streams 0 0 3600 >/dev/null & clients=$!
  sleep 3
  for n in 1 2 3; do
    kill -STOP $console && console_probe clients && kill -CONT $console
    console_probe watched
  done
  kill $clients && wait $clients 2>/dev/null || true
  sleep 2 # until they are known to be gone: 300 may look at a time
  read -r events longest < <(console_clients $console_streams $console_slow "$(scaled 10000)" 20)
  note console.events "$events"
  note console.health "$longest"
  note console.memory "$(awk '/VmHWM/ { print $2 / 1024 }' "/proc/$console/status")"
  kill -TERM $console
  wait $console || die "the console ended with $?"
}

console_start() {
  "$bxadm" serve --listen 127.0.0.1:0 --allow-changes >"$work/console" 2>/dev/null & console=$!
  until grep -q Listening "$work/console"; do kill -0 $console || die "no console"; sleep 0.1; done
  address=$(grep -o '127[^/]*' "$work/console")
}
console_clients() { exec /usr/bin/python3 -B "$here/console_clients.py" "$address" "$@"; }

# One writer's commits of one record each, as fast as they go.
console_probe() { sample "console.$1" "$tools/commit_probe" PROBE -n "$(scaled 20000)"; }

# How much of a processor it takes while nobody looks, in percent.
console_idle() {
  local before after
  before=$(console_ticks) && sleep 20 && after=$(console_ticks)
  note console.idle "$(awk -v t=$((after - before)) -v hz="$(getconf CLK_TCK)" 'BEGIN { print t / hz / 20 * 100 }')"
}
console_ticks() { sed 's/.*) //' "/proc/$console/stat" | awk '{ print $12 + $13 }'; }

measure_console() { each_run console_run; }

table_console() {
  heading "A console beside a writer: $console_queues queues, commits of one record" "the console" \
    "ms a commit" "to without"
  line "stopped" "$(spread console.none 1000)" ""
  line "nobody looks" "$(spread console.unwatched 1000)" "$(ratio console.unwatched console.none)"
  line "stopped, with $console_streams who look" "$(spread console.clients 1000)" ""
  line "$console_streams look" "$(spread console.watched 1000)" "$(ratio console.watched console.clients)"
  heading "The console itself" "figure" "value"
  line "of a processor while nobody looks, %" "$(spread console.idle)"
  line "most memory, with $console_streams who look, $console_slow slow clients and $(scaled 10000) malformed requests, MiB" "$(spread console.memory)"
  line "longest answer of /healthz meanwhile, ms" "$(spread console.health)"
  line "least events that one who looks got meanwhile" "$(spread console.events)"
}
