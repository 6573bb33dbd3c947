#include "manager/store/catalog.h"

namespace bxm {

Catalog& catalog() { return postgresCatalog(); }

} // namespace bxm
