#include "manager/store/catalog.h"

#include "manager/base/home_folder.h"
#include "manager/base/process_local.h"
#include "manager/store/log/home.h"

#include <filesystem>

namespace bxm {

namespace {

/// One object for each folder that BXM_HOME has named.
struct Homes {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<Home>> byFolder;
};

} // namespace

Catalog& embeddedCatalog() {
  Homes& homes = ProcessLocal<Homes>::get();
  const std::lock_guard guard(homes.mutex);
  // By its one true name: an environment must not be opened twice in a process.
  std::error_code error;
  const std::string named = homeFolder();
  const auto folder = std::filesystem::weakly_canonical(named, error);
  auto& home = homes.byFolder[error ? named : folder.string()];
  if (!home) home = std::make_unique<Home>(error ? named : folder.string());
  return *home;
}

} // namespace bxm
