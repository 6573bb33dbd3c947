#pragma once

#include <string>

namespace bxm {

/// BXM_HOME, else where the system keeps the state of root's or a user's programs. Throws Failure
/// 2059 when nothing says where.
std::string homeFolder();

} // namespace bxm
