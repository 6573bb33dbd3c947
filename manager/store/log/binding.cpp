#include "manager/store/catalog.h"

namespace bxm {

Catalog& catalog() { return embeddedCatalog(); }

} // namespace bxm
