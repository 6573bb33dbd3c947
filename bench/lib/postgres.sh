# Database servers of the benchmark's own, on the disk that is measured, with everything that makes them
# durable. The tool is the one of a client installation.
pg_programs=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | tail -1)
pg_base=$((20000 + $$ % 20000))
pg_pids=

# The server refuses root.
as_server() {
  if [ "$(id -u)" = 0 ]; then setpriv --reuid=postgres --regid=postgres --clear-groups "$@"; else "$@"; fi
}

# start_postgres NUMBER [VARIABLE=VALUE...]: a server in a folder of that number, on a socket there and over
# loopback TCP.
start_postgres() {
  local data=$work/pg$1/data tries=0
  chmod 755 "$work"
  mkdir -p "$work/pg$1"
  [ "$(id -u)" != 0 ] || chown postgres "$work/pg$1"
  as_server "$pg_programs/initdb" -D "$data" -U postgres -A trust --locale=C.UTF-8 >>"$errors" 2>&1 || return 1
  as_server env "${@:2}" "$pg_programs/postgres" -D "$data" -k "$work/pg$1" -p $((pg_base + $1)) \
    -c listen_addresses=127.0.0.1 >"$work/pg$1.log" 2>&1 &
  until psql "$(pg_uri socket "$1")" -c 'SELECT 1' >/dev/null 2>&1; do
    [ $((++tries)) -lt 100 ] || die "the database server does not start"
    sleep 0.1
  done
  pg_pids="$pg_pids $(head -1 "$data/postmaster.pid")"
}

stop_postgres() {
  [ -z "$pg_pids" ] || { kill -INT $pg_pids && wait || true; }
  pg_pids=
}

# Starts the server that most sections use, once; fails where none can be started.
have_postgres() {
  local way
  [ ! -d "$work/socket" ] || return 0
  [ -x "$pg_programs/postgres" ] && start_postgres 0 || return 1
  for way in socket tcp; do
    mkdir "$work/$way"
    printf '[managers]\ndefault = B\nB = %s\n' "$(pg_uri "$way")" >"$work/$way/bxclient.ini"
  done
  BXM_HOME=$work/made "$bxadm" manager create B --store "$(pg_uri socket)" >/dev/null
}

# pg_uri socket|tcp [NUMBER]
pg_uri() {
  case $1 in
  socket) echo "postgresql://postgres@/postgres?host=$work/pg${2:-0}&port=$((pg_base + ${2:-0}))" ;;
  tcp) echo "postgresql://postgres@127.0.0.1:$((pg_base + ${2:-0}))/postgres" ;;
  esac
}

# by_client WAY COMMAND...: does it as a machine would that has only the client bindings.
by_client() {
  (
    ferry=$build/client/bin/ferry BXM_HOME=$work/$1
    export LD_LIBRARY_PATH=$build/client/lib
    shift
    "$@"
  )
}

# Empty queues, and an empty table for what the tool is compared with.
pg_fresh() {
  local name
  for name; do
    BXM_HOME=$work/socket "$bxadm" queue delete "$name" --force >/dev/null 2>&1 || true
  done
  BXM_HOME=$work/socket queue "$@"
  "$tools/postgres_floor" make "$(pg_uri socket)" 2>>"$errors"
}
