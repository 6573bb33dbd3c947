#pragma once

#include "manager/console/problem.h"

#include <atomic>
#include <memory>

namespace bxm::console {

/// So many of something at a time. Must outlive what it gave.
class Slots {
public:
  Slots(std::size_t most, const char* what) : m_most(most), m_what(what) {}

  /// Held as long as one of the copies lives; null where all are taken.
  std::shared_ptr<void> tryTake() {
    const std::shared_ptr<void> taken(this, [](Slots* slots) { --slots->m_taken; });
    return ++m_taken <= m_most ? taken : nullptr;
  }
  /// The same. Throws Problem 429.
  std::shared_ptr<void> take() {
    if (auto taken = tryTake()) return taken;
    throw Problem(429, std::string("too many ") + m_what + " at once");
  }

private:
  const std::size_t m_most;
  const char* const m_what;
  std::atomic<std::size_t> m_taken{0};
};

} // namespace bxm::console
