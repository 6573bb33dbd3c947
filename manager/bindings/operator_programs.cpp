#include "manager/bindings/all_managers.h"

namespace bxm {

Catalog& catalog() {
  static AllManagers all(embeddedCatalog, postgresCatalog);
  return all;
}

} // namespace bxm
