# The tool on a manager in a database, next to a plain queue there: a table that is filled by COPY, and
# from which each reader deletes the first row that nobody else has locked.
postgres_counts="1 2 4 8"

postgres_run() {
  local n few way
  n=$(scaled 1000000) few=$(scaled 50000)
  for way in socket tcp; do
    pg_fresh Q
    postgres_pair "load.$way" "$way" "$n" -i "$(records "$n" 100)" -- -f Q -- load
    postgres_pair "read.$way" "$way" "$few" -- -r Q -c "$few" -- read "$few"
    sample "postgres.read.$way.hold" timed "$few" -- "$tools/postgres_floor" hold "$(pg_uri "$way")" "$few"
  done
}

# postgres_pair METRIC WAY COUNT [option of measure...] -- OPTION OF FERRY... -- FLOOR [COUNT]
postgres_pair() {
  local metric=postgres.$1 way=$2 count=$3 options=() tool=()
  shift 3
  while [ "$1" != -- ]; do options+=("$1") && shift; done
  shift
  while [ "$1" != -- ]; do tool+=("$1") && shift; done
  shift
  by_client "$way" postgres_tool "$metric" "$count" ${options[@]+"${options[@]}"} -- "${tool[@]}"
  sample "$metric.floor" timed "$count" ${options[@]+"${options[@]}"} -- \
    "$tools/postgres_floor" "$1" "$(pg_uri "$way")" ${2:+"$2"}
}

# postgres_tool METRIC COUNT [option of measure...] -- OPTION OF FERRY...
postgres_tool() {
  local metric=$1 count=$2 options=()
  shift 2
  while [ "$1" != -- ]; do options+=("$1") && shift; done
  shift
  sample "$metric" timed "$count" ${options[@]+"${options[@]}"} -- "$ferry" "$@"
}

postgres_many_run() {
  local k n few
  for k in $postgres_counts; do
    n=$(($(scaled 400000) / k)) few=$(($(scaled 20000) / k))
    pg_fresh Q
    postgres_pair "writers.$k" socket "$n" -n "$k" -i "$(records "$n" 100)" -- -f Q -- load
    postgres_pair "readers.$k" socket "$few" -n "$k" -- -r Q -c "$few" -- read "$few"
  done
}

# Start to exit with one record.
postgres_single_run() {
  local in
  in=$(records 1 100)
  pg_fresh Q
  by_client socket single_client put -i "$in" -- -f Q
  single_psql put "INSERT INTO plain_queue (body) VALUES ('$(cat "$in")')"
  by_client socket single_client read -- -r Q -c 1
  single_psql read "DELETE FROM plain_queue WHERE id = (SELECT id FROM plain_queue ORDER BY id
    FOR UPDATE SKIP LOCKED LIMIT 1) RETURNING body"
}

# single_client METRIC [option of measure...] -- OPTION OF FERRY...
single_client() {
  local metric=postgres.single.$1 options=()
  shift
  while [ "$1" != -- ]; do options+=("$1") && shift; done
  shift
  sample "$metric" "$tools/measure" -e "$errors" -r 20 ${options[@]+"${options[@]}"} -- "$ferry" "$@"
}

single_psql() {
  sample "postgres.single.$1.floor" "$tools/measure" -e "$errors" -r 20 -- \
    "$pg_programs/psql" "$(pg_uri socket)" -XAtqc "$2"
}

measure_postgres() {
  have_postgres || return 0
  each_run postgres_run
  each_run postgres_many_run
  each_run postgres_single_run
}

table_postgres() {
  local n few way k
  n=$(scaled 1000000) few=$(scaled 50000)
  have_postgres || { echo "No PostgreSQL server can be started: no figures of one." && return; }
  heading "In PostgreSQL: records of 100 bytes, a read commits each" \
    "work" "over" "records" "s" "records/s" "plain queue, s" "ratio"
  for way in socket tcp; do
    postgres_line load "$way" "$n" "load.$way"
    postgres_line read "$way" "$few" "read.$way"
    line "read, plain queue committed when written" "$way" "$few" - - \
      "$(spread "postgres.read.$way.hold")" "$(ratio "postgres.read.$way" "postgres.read.$way.hold")"
  done
  heading "In PostgreSQL: processes at once on one queue" \
    "work" "processes" "records" "s" "records/s" "plain queue, s" "ratio"
  for k in $postgres_counts; do
    postgres_line load "$k" $(($(scaled 400000) / k * k)) "writers.$k"
  done
  for k in $postgres_counts; do
    postgres_line read "$k" $(($(scaled 20000) / k * k)) "readers.$k"
  done
  heading "In PostgreSQL: one record, start to exit" "operation" "ms" "psql -c, ms" "ratio"
  for k in put read; do
    line "$k" "$(spread "postgres.single.$k" 1000)" "$(spread "postgres.single.$k.floor" 1000)" \
      "$(ratio "postgres.single.$k" "postgres.single.$k.floor")"
  done
}

# postgres_line WORK COLUMN RECORDS METRIC
postgres_line() {
  line "$1" "$2" "$3" "$(spread "postgres.$4")" "$(rate "postgres.$4" "$3")" \
    "$(spread "postgres.$4.floor")" "$(ratio "postgres.$4" "postgres.$4.floor")"
}
