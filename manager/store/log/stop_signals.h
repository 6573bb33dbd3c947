#pragma once

#include <csignal>

namespace bxm {

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

} // namespace bxm
