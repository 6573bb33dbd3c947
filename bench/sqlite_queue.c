/*
 * sqlite_queue DATABASE COUNT normal|full [put]: a table q(body) as a queue. Takes the first row in a
 * transaction of its own and writes it to standard output, or puts one, COUNT times. Prints how long
 * it took.
 */
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

static void check(sqlite3* database, int result, int wanted) {
  if (result == wanted) return;
  fprintf(stderr, "sqlite_queue: %s\n", sqlite3_errmsg(database));
  exit(1);
}

static void execute(sqlite3* database, const char* text) {
  check(database, sqlite3_exec(database, text, NULL, NULL, NULL), SQLITE_OK);
}

static sqlite3_stmt* prepare(sqlite3* database, const char* text) {
  sqlite3_stmt* statement = NULL;
  check(database, sqlite3_prepare_v2(database, text, -1, &statement, NULL), SQLITE_OK);
  return statement;
}

static void run(sqlite3* database, sqlite3_stmt* statement) {
  check(database, sqlite3_step(statement), SQLITE_DONE);
  sqlite3_reset(statement);
}

static void output(const void* text, int length) {
  static char line[1 << 20];
  if (length < 0 || (size_t)length >= sizeof line) exit(1);
  memcpy(line, text, (size_t)length);
  line[length] = '\n';
  if (write(STDOUT_FILENO, line, (size_t)length + 1) != length + 1) exit(1);
}

static double now(void) {
  struct timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static void take_all(sqlite3* database, long count) {
  sqlite3_stmt* begin = prepare(database, "BEGIN IMMEDIATE");
  sqlite3_stmt* first = prepare(database, "SELECT rowid, body FROM q ORDER BY rowid LIMIT 1");
  sqlite3_stmt* erase = prepare(database, "DELETE FROM q WHERE rowid = ?");
  sqlite3_stmt* commit = prepare(database, "COMMIT");
  for (long i = 0; i < count; ++i) {
    run(database, begin);
    check(database, sqlite3_step(first), SQLITE_ROW);
    output(sqlite3_column_text(first, 1), sqlite3_column_bytes(first, 1));
    sqlite3_bind_int64(erase, 1, sqlite3_column_int64(first, 0));
    sqlite3_reset(first);
    run(database, erase);
    run(database, commit);
  }
  sqlite3_finalize(begin);
  sqlite3_finalize(first);
  sqlite3_finalize(erase);
  sqlite3_finalize(commit);
}

static void put_all(sqlite3* database, long count) {
  sqlite3_stmt* insert = NULL;
  execute(database, "CREATE TABLE IF NOT EXISTS q(body TEXT)");
  insert = prepare(database, "INSERT INTO q VALUES(hex(zeroblob(50)))");
  for (long i = 0; i < count; ++i) run(database, insert);
  sqlite3_finalize(insert);
}

int main(int argc, char** argv) {
  sqlite3* database = NULL;
  if (argc < 4) return 2;
  check(database, sqlite3_open(argv[1], &database), SQLITE_OK);
  execute(database, "PRAGMA journal_mode = WAL");
  execute(database, strcmp(argv[3], "full") == 0 ? "PRAGMA synchronous = FULL"
                                                 : "PRAGMA synchronous = NORMAL");
  const double begin = now();
  if (argc > 4)
    put_all(database, atol(argv[2]));
  else
    take_all(database, atol(argv[2]));
  fprintf(stderr, "%.6f\n", now() - begin);
  sqlite3_close(database);
  return 0;
}
