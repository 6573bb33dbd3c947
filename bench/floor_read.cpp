// floor_read FILE: takes every record and writes it to standard output, one write each. A take is
// two small transactions, claim and commit, in an environment that nobody syncs; the durable
// environment loses the records in batches.
#include "bench/floor_store.h"
#include "bench/floor_text.h"

#include <cstring>
#include <unistd.h>
#include <vector>

using namespace bench;

namespace {

class Reader {
public:
  explicit Reader(const std::string& file)
      : m_durable(file, Environment::Sync::kEveryCommit),
        m_runtime(file + ".runtime", Environment::Sync::kNever) {}

  /// Takes the record behind the last one; false when there is none.
  bool take(std::string& record) {
    {
      Transaction browse(m_durable, Transaction::Kind::kRead);
      Key from(0, m_next);
      MDB_val key = from.value(), value{};
      const int result = ::mdb_cursor_get(browse.cursor, &key, &value, MDB_SET_RANGE);
      if (result == MDB_NOTFOUND) return false;
      check(result, "reading");
      note('t');
      record.assign(toView(value));
    }
    note('c');
    ++m_next;
    if (m_next - m_deleted >= kBatchRecords) settle();
    return true;
  }

  void settle() {
    Transaction batch(m_durable, Transaction::Kind::kWrite);
    for (std::uint64_t sequence = m_deleted; sequence < m_next; ++sequence)
      erase(batch.txn, m_durable.table, sequence);
    batch.commit();
    Transaction forgotten(m_runtime, Transaction::Kind::kWrite);
    for (; m_deleted < m_next; ++m_deleted) erase(forgotten.txn, m_runtime.table, m_deleted);
    forgotten.commit();
  }

  std::uint64_t count() const { return m_next; }

private:
  /// Taken or consumed: one transaction of the runtime environment.
  void note(char state) {
    Transaction transaction(m_runtime, Transaction::Kind::kWrite);
    Key key(0, m_next);
    MDB_val keyValue = key.value(), value{1, &state};
    check(::mdb_cursor_put(transaction.cursor, &keyValue, &value, 0), "claiming");
    transaction.commit();
  }

  static void erase(MDB_txn* txn, MDB_dbi table, std::uint64_t sequence) {
    Key key(0, sequence);
    MDB_val keyValue = key.value();
    check(::mdb_del(txn, table, &keyValue, nullptr), "deleting");
  }

  Environment m_durable, m_runtime;
  std::uint64_t m_next = 0, m_deleted = 0;
};

} // namespace

int main(int count, char** values) {
  if (count < 2) return 2;
  useUtf8();
  Reader reader(values[1]);
  std::string record;
  while (reader.take(record)) {
    const std::string_view line = lineThroughIcu(record);
    if (::write(STDOUT_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
      return 1;
  }
  reader.settle();
  report(reader.count(), "Received");
}
