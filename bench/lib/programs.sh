# The programs that are measured, and the folder that they work in.
ferry=$build/bin/ferry
bxadm=$build/bin/bxadm
tools=$build/bench
errors=$work/errors
export BXM_HOME=$work/home

die() {
  echo "bench/run: $*" >&2
  [ -s "$errors" ] && tail -3 "$errors" >&2
  exit 1
}

[ -x "$ferry" ] && [ -x "$tools/measure" ] || die "$build holds no build with benchmark programs"

# by_other COMMAND...: does it with the programs and a manager of the build of --against, if any.
by_other() {
  [ -n "$against" ] || return 0
  (
    ferry=$against/bin/ferry bxadm=$against/bin/bxadm BXM_HOME=$work/other/home
    mkdir -p "$BXM_HOME"
    "$@"
  )
}

have_sqlite() { command -v sqlite3 >/dev/null && [ -x "$tools/sqlite_queue" ]; }

# An empty manager and an empty folder for the others' stores.
fresh() {
  rm -rf "$work/home" "$work/other"
  mkdir "$work/home" "$work/other"
  cp "$here/lib/ferry.ini" "$work/other"
}

# queue NAME...: makes queues as deep as anything measured here.
queue() {
  local name
  for name; do
    "$bxadm" queue create "$name" --max-depth 100000000 >/dev/null || die "cannot create $name"
  done
}

# records COUNT SIZE: a file of so many records, made once; prints its name.
records() {
  local file=$work/records-$1-$2
  [ -e "$file" ] || "$tools/records" make "$1" "$2" >"$file"
  echo "$file"
}

# scaled COUNT: the count, divided by --scale.
scaled() { echo $(($1 / scale > 0 ? $1 / scale : 1)); }

# timed COUNT [option of measure...] -- COMMAND...: its seconds. Every process of it has to tell
# that it handled COUNT records: a program that fails fast must not look fast.
timed() {
  local count=$1 result
  shift
  : >"$errors"
  result=$("$tools/measure" -e "$errors" "$@") || die "failed: $*"
  if grep -v "^($count) Records\|^Sent $count records\|^Final stats" "$errors" >&2; then
    die "expected $count records: $*"
  fi
  echo "$result"
}

# untimed COUNT ...: the same, for what only prepares a measurement.
untimed() { timed "$@" >/dev/null; }
