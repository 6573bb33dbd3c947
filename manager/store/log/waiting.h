#pragma once

#include <chrono>
#include <csignal>
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

/// While one exists, SIGTSTP, SIGTTIN and SIGTTOU wait, as far as its thread is concerned: whoever
/// holds a lock that others wait for must not be stopped. Ends in the thread that it began in.
class StopSignalsWait {
public:
  StopSignalsWait() noexcept;
  ~StopSignalsWait();
  StopSignalsWait(const StopSignalsWait&) = delete;
  StopSignalsWait& operator=(const StopSignalsWait&) = delete;

private:
  sigset_t m_before;
};

/// A line on standard error for whoever looks after the store.
void notice(const std::string& text);

} // namespace bxm
