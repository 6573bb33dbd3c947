# A database server of the benchmark's own, on the disk that is measured, with everything that makes it
# durable: over a socket and over loopback TCP. The tool is the one of a client installation.
pg_programs=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | tail -1)
pg_data=$work/pg/data
pg_port=
pg_pid=

# The server refuses root.
as_server() {
  if [ "$(id -u)" = 0 ]; then setpriv --reuid=postgres --regid=postgres --clear-groups "$@"; else "$@"; fi
}

# Starts the server once; fails where none can be started.
have_postgres() {
  [ -z "$pg_pid" ] || return 0
  [ -x "$pg_programs/postgres" ] || return 1
  chmod 755 "$work"
  mkdir -p "$work/pg"
  [ "$(id -u)" != 0 ] || chown postgres "$work/pg"
  as_server "$pg_programs/initdb" -D "$pg_data" -U postgres -A trust --locale=C.UTF-8 >>"$errors" 2>&1 || return 1
  pg_port=$((20000 + $$ % 20000))
  as_server "$pg_programs/postgres" -D "$pg_data" -k "$work/pg" -p "$pg_port" \
    -c listen_addresses=127.0.0.1 >"$work/pg.log" 2>&1 &
  local way tries=0
  until psql "$(pg_uri socket)" -c 'SELECT 1' >/dev/null 2>&1; do
    [ $((++tries)) -lt 100 ] || die "the database server does not start"
    sleep 0.1
  done
  pg_pid=$(head -1 "$pg_data/postmaster.pid")
  for way in socket tcp; do
    mkdir "$work/$way"
    printf '[managers]\ndefault = B\nB = %s\n' "$(pg_uri "$way")" >"$work/$way/bxclient.ini"
  done
  BXM_HOME=$work/made "$bxadm" manager create B --store "$(pg_uri socket)" >/dev/null
}

stop_postgres() {
  [ -z "$pg_pid" ] || { kill -INT "$pg_pid" && wait || true; }
}

# pg_uri socket|tcp
pg_uri() {
  case $1 in
  socket) echo "postgresql://postgres@/postgres?host=$work/pg&port=$pg_port" ;;
  tcp) echo "postgresql://postgres@127.0.0.1:$pg_port/postgres" ;;
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
    BXM_HOME=$work/socket "$bxadm" queue delete "$name" >/dev/null 2>&1 || true
  done
  BXM_HOME=$work/socket queue "$@"
  "$tools/postgres_floor" make "$(pg_uri socket)" 2>>"$errors"
}
