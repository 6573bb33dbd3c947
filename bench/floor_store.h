#pragma once

#include <cstdint>
#include <lmdb.h>
#include <string>
#include <string_view>

namespace bench {

/// The rule by which the tool's loops commit; the floors keep to it.
constexpr std::size_t kBatchRecords = 1000;
constexpr std::size_t kBatchBytes = 1 << 20;

/// Ends the program with a line on standard error unless an LMDB call succeeded.
void check(int result, const char* what);

/// Tells how many records were handled, the way the tool does.
void report(std::uint64_t count, const char* what);

/// The key of a record: queue and sequence, big-endian.
class Key {
public:
  Key(std::uint32_t queue, std::uint64_t sequence);
  MDB_val value() { return {sizeof m_bytes, m_bytes}; }

private:
  unsigned char m_bytes[12];
};

inline MDB_val toVal(std::string_view text) {
  return {text.size(), const_cast<char*>(text.data())};
}
inline std::string_view toView(const MDB_val& value) {
  return {static_cast<const char*>(value.mv_data), value.mv_size};
}

/// An environment with one table and nothing around it. Left open until the process ends.
struct Environment {
  enum class Sync { kEveryCommit, kNever };
  Environment(const std::string& file, Sync sync);

  MDB_env* env = nullptr;
  MDB_dbi table = 0;
};

/// A transaction of an environment with a cursor over its table.
struct Transaction {
  enum class Kind { kRead, kWrite };
  Transaction(const Environment& environment, Kind kind);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void commit();
  /// The next record; false when there are no more.
  bool next(MDB_val& key, MDB_val& value);

  MDB_txn* txn = nullptr;
  MDB_cursor* cursor = nullptr;
};

} // namespace bench
