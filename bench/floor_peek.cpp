// floor_peek FILE: an LMDB table to standard output, one walk within one transaction.
#include "bench/floor_store.h"
#include "bench/floor_text.h"

#include <cstdio>

using namespace bench;

int main(int count, char** values) {
  if (count < 2) return 2;
  useUtf8();
  const Environment store(values[1], Environment::Sync::kEveryCommit);
  Transaction walk(store, Transaction::Kind::kRead);
  std::uint64_t records = 0;
  for (MDB_val key{}, value{}; walk.next(key, value); ++records) {
    const std::string_view line = lineThroughIcu(toView(value));
    std::fwrite(line.data(), 1, line.size(), stdout);
  }
  if (std::fflush(stdout) != 0) return 1;
  report(records, "Received");
}
