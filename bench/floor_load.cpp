// floor_load FILE [QUEUES]: standard input into LMDB, round robin over the queues, in synchronous
// batches. What any load of records through ICU into LMDB costs at least.
#include "bench/floor_store.h"
#include "bench/floor_text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

using namespace bench;

namespace {

constexpr int kLineSize = 409'600;

class Loader {
public:
  Loader(const char* file, std::uint32_t queues)
      : m_environment(file, Environment::Sync::kEveryCommit), m_queues(queues) {}

  void add(std::string_view record) {
    if (!m_batch) m_batch = std::make_unique<Transaction>(m_environment, Transaction::Kind::kWrite);
    Key key(static_cast<std::uint32_t>(m_count % m_queues), m_count);
    MDB_val keyValue = key.value(), value = toVal(record);
    // Only the last of all keys can be appended; a store with several queues has to insert.
    check(::mdb_cursor_put(m_batch->cursor, &keyValue, &value, m_queues == 1 ? MDB_APPEND : 0),
          "writing");
    ++m_count;
    ++m_records;
    m_bytes += record.size();
    if (m_records >= kBatchRecords || m_bytes >= kBatchBytes) commit();
  }

  void commit() {
    if (m_batch) m_batch->commit();
    m_batch.reset();
    m_records = m_bytes = 0;
  }

  std::uint64_t count() const { return m_count; }

private:
  Environment m_environment;
  std::unique_ptr<Transaction> m_batch;
  std::uint32_t m_queues;
  std::uint64_t m_count = 0;
  std::size_t m_records = 0, m_bytes = 0;
};

} // namespace

int main(int count, char** values) {
  if (count < 2) return 2;
  useUtf8();
  Loader loader(values[1], count > 2 ? static_cast<std::uint32_t>(std::atoi(values[2])) : 1);
  const auto line = std::make_unique<char[]>(kLineSize);
  while (std::fgets(line.get(), kLineSize, stdin)) loader.add(throughIcu(line.get()));
  loader.commit();
  report(loader.count(), "Sent");
}
