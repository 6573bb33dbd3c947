#include "manager/store/catalog.h"

#include "manager/store/lmdb/home.h"
#include "manager/store/process_local.h"

namespace bxm {

namespace {

/// One object for each folder that BXM_HOME has named.
struct Homes {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<Home>> byFolder;
};

} // namespace

Catalog& catalog() {
  Homes& homes = ProcessLocal<Homes>::get();
  const std::lock_guard guard(homes.mutex);
  auto& home = homes.byFolder[defaultHomeFolder()];
  if (!home) home = std::make_unique<Home>(defaultHomeFolder());
  return *home;
}

} // namespace bxm
