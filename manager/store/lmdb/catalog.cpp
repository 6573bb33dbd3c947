#include "manager/store/catalog.h"

#include "manager/store/lmdb/home.h"

namespace bxm {

Catalog& catalog() {
  // One object for each folder that BXM_HOME has named; never destroyed, because connections may
  // be used until the very end of the process.
  static std::mutex& mutex = *new std::mutex;
  static auto& homes = *new std::map<std::string, std::unique_ptr<Home>>;
  const std::lock_guard guard(mutex);
  auto& home = homes[defaultHomeFolder()];
  if (!home) home = std::make_unique<Home>(defaultHomeFolder());
  return *home;
}

} // namespace bxm
