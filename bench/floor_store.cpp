#include "bench/floor_store.h"

#include <cstdio>
#include <cstdlib>

namespace bench {

void check(int result, const char* what) {
  if (result == MDB_SUCCESS) return;
  std::fprintf(stderr, "%s: %s\n", what, ::mdb_strerror(result));
  std::exit(1);
}

void report(std::uint64_t count, const char* what) {
  std::fprintf(stderr, "(%llu) Records %s.\n", static_cast<unsigned long long>(count), what);
}

Key::Key(std::uint32_t queue, std::uint64_t sequence) {
  for (int i = 0; i < 4; ++i) m_bytes[i] = static_cast<unsigned char>(queue >> (24 - 8 * i));
  for (int i = 0; i < 8; ++i) m_bytes[4 + i] = static_cast<unsigned char>(sequence >> (56 - 8 * i));
}

Environment::Environment(const std::string& file, Sync sync) {
  const std::size_t mapSize = std::size_t{1} << (sync == Sync::kNever ? 30 : 40);
  const unsigned how = sync == Sync::kNever ? MDB_NOSYNC | MDB_WRITEMAP : 0;
  check(::mdb_env_create(&env), "making an environment");
  check(::mdb_env_set_mapsize(env, mapSize), "setting the map's size");
  check(::mdb_env_open(env, file.c_str(), MDB_NOSUBDIR | MDB_NOTLS | how, 0660), file.c_str());
  MDB_txn* txn = nullptr;
  check(::mdb_txn_begin(env, nullptr, 0, &txn), "beginning a transaction");
  check(::mdb_dbi_open(txn, nullptr, 0, &table), "opening the table");
  check(::mdb_txn_commit(txn), "opening the table");
}

Transaction::Transaction(const Environment& environment, Kind kind) {
  const unsigned how = kind == Kind::kRead ? MDB_RDONLY : 0;
  check(::mdb_txn_begin(environment.env, nullptr, how, &txn), "beginning a transaction");
  check(::mdb_cursor_open(txn, environment.table, &cursor), "opening a cursor");
}

Transaction::~Transaction() {
  if (!txn) return;
  ::mdb_cursor_close(cursor);
  ::mdb_txn_abort(txn);
}

void Transaction::commit() {
  ::mdb_cursor_close(cursor);
  check(::mdb_txn_commit(txn), "committing");
  txn = nullptr;
}

bool Transaction::next(MDB_val& key, MDB_val& value) {
  const int result = ::mdb_cursor_get(cursor, &key, &value, MDB_NEXT);
  if (result == MDB_NOTFOUND) return false;
  check(result, "reading");
  return true;
}

} // namespace bench
