#pragma once

#include "manager/store/log/check.h"

#include <functional>
#include <string>

namespace bxm {

/// Writes all that is good in a manager's folder into another, which is empty, and what is not into
/// a file there. Then calls replace, while nobody else can open the manager, which is to put the
/// one in the place of the other. Throws Failure 2042 when the manager is in use.
Catalog::Repair repairStore(const std::string& name, const std::string& broken,
                            const std::string& made, const std::function<void()>& replace);

} // namespace bxm
