// floor_purge FILE: deletes every record, in synchronous batches.
#include "bench/floor_store.h"

using namespace bench;

namespace {

/// Deletes up to a batch of records from the front; how many there were.
std::size_t deleteBatch(const Environment& store) {
  Transaction batch(store, Transaction::Kind::kWrite);
  std::size_t records = 0, bytes = 0;
  for (MDB_val key{}, value{};
       records < kBatchRecords && bytes < kBatchBytes && batch.next(key, value); ++records) {
    bytes += value.mv_size;
    check(::mdb_cursor_del(batch.cursor, 0), "deleting");
  }
  batch.commit();
  return records;
}

} // namespace

int main(int count, char** values) {
  if (count < 2) return 2;
  const Environment store(values[1], Environment::Sync::kEveryCommit);
  std::uint64_t records = 0;
  while (const std::size_t batch = deleteBatch(store)) records += batch;
  report(records, "Purged");
}
