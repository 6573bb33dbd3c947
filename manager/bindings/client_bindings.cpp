#include "manager/bindings/database_managers.h"

namespace bxm {

Catalog& catalog() { return postgresCatalog(); }

} // namespace bxm

extern "C" bxm::Catalog* bxmDatabaseManagers(int version) {
  return version == bxm::kBindingsVersion ? &bxm::postgresCatalog() : nullptr;
}
