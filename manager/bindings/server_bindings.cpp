#include "manager/base/failure.h"
#include "manager/bindings/all_managers.h"
#include "manager/bindings/database_managers.h"

#include <dlfcn.h>
#include <string>
#include <unistd.h>

namespace bxm {

namespace {

/// Beside this library, where a folder that is not the loader's holds both, or where the loader
/// looks.
void* clientLibrary() {
  constexpr const char* kName = "libbxic_r.so";
  Dl_info self{};
  if (::dladdr(reinterpret_cast<const void*>(&clientLibrary), &self) != 0 && self.dli_fname) {
    const std::string path = self.dli_fname;
    const std::string beside = path.substr(0, path.rfind('/') + 1) + kName;
    if (::access(beside.c_str(), F_OK) == 0) return ::dlopen(beside.c_str(), RTLD_NOW);
  }
  return ::dlopen(kName, RTLD_NOW);
}

Catalog& databaseManagers() {
  static Catalog* const managers = [] {
    void* library = clientLibrary();
    if (!library) {
      const char* error = ::dlerror();
      throw Failure(
          BXRC_Q_MGR_NOT_AVAILABLE,
          std::string("the queue manager is in a database, which needs the client bindings: ") +
              (error ? error : "they cannot be loaded"));
    }
    const auto offered =
        reinterpret_cast<decltype(&bxmDatabaseManagers)>(::dlsym(library, kDatabaseManagers));
    Catalog* const found = offered ? offered(kBindingsVersion) : nullptr;
    if (!found)
      throw Failure(
          BXRC_Q_MGR_NOT_AVAILABLE,
          "the queue manager is in a database, and the client bindings are of another version");
    return found;
  }();
  return *managers;
}

} // namespace

Catalog& catalog() {
  static AllManagers all(embeddedCatalog, databaseManagers);
  return all;
}

} // namespace bxm
