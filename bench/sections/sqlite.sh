# The same records in a table of SQLite: its command line's .import, and a queue of one-row takes.
# import_records FILE SYNCHRONOUS: seconds. The separators are ones that no record holds.
import_records() {
  rm -f "$work/other/sqlite"*
  sqlite3 "$work/other/sqlite" "PRAGMA journal_mode = WAL; CREATE TABLE q(body TEXT)" >/dev/null
  cat >"$work/other/import" <<END
PRAGMA synchronous = $2;
.mode ascii
.separator "\037" "\n"
.import $1 q
END
  "$tools/measure" -e "$errors" -i "$work/other/import" -- sqlite3 "$work/other/sqlite"
  [ "$(sqlite3 "$work/other/sqlite" "SELECT count(*) FROM q")" = "$(wc -l <"$1")" ] ||
    die "SQLite did not import $1"
}

# take_rows COUNT SYNCHRONOUS: seconds.
take_rows() { "$tools/sqlite_queue" "$work/other/sqlite" "$1" "$2" 2>&1 >/dev/null; }

sqlite_run() {
  local n few in
  n=$(scaled 1000000) few=$(scaled 20000)
  in=$(records "$n" 100)
  queue Q
  sample sqlite.load timed "$n" -i "$in" -- "$ferry" -f Q
  sample sqlite.import import_records "$in" FULL
  sample sqlite.read timed "$n" -- "$ferry" -r Q -c "$n"
  sample sqlite.take-normal take_rows "$few" normal
}

measure_sqlite() { if have_sqlite; then each_run sqlite_run; fi; }

table_sqlite() {
  local n few
  n=$(scaled 1000000) few=$(scaled 20000)
  have_sqlite || { echo "SQLite is not installed: no comparison." && return; }
  heading "Next to SQLite" "work" "records" "s" "records/s"
  sqlite_line "load" "$n" sqlite.load
  sqlite_line "SQLite .import, WAL, synchronous=FULL" "$n" sqlite.import
  sqlite_line "read" "$n" sqlite.read
  sqlite_line "SQLite one-row takes, WAL, synchronous=NORMAL" "$few" sqlite.take-normal
}

# sqlite_line LABEL COUNT METRIC
sqlite_line() { line "$1" "$2" "$(spread "$3")" "$(rate "$3" "$2")"; }
