#pragma once

#include <cstdint>

namespace bxm {

/// From the kernel. Throws Failure 2102.
std::uint64_t randomNumber();

} // namespace bxm
