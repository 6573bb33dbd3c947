#pragma once

#include <chrono>
#include <string>

namespace bxm {

/// Waiting for something that somebody else has to do. After a second it says on standard error
/// what for.
class Patience {
public:
  explicit Patience(std::string what) : m_what(std::move(what)) {}
  /// Sleeps for some milliseconds. Throws Failure 2059 when a signal that the program handles
  /// interrupts that: whoever wants it to end need not wait, too.
  void wait();
  std::chrono::milliseconds waited() const;

private:
  std::string m_what;
  std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
  bool m_told = false;
};

/// A line on standard error for whoever looks after the store.
void notice(const std::string& text);

} // namespace bxm
