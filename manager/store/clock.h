#pragma once

#include <chrono>
#include <cstdint>

namespace bxm {

/// Milliseconds since 1970.
inline std::int64_t clockNow() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

} // namespace bxm
