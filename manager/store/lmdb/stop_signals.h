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

/// The same for a thread that the program does not know of: a signal that any other thread accepts
/// stops this one, too. Signals for which the program has no handler of its own are noted, and sent
/// again when the last of these objects ends.
class StopSignalsPostponed {
public:
  StopSignalsPostponed();
  ~StopSignalsPostponed();
  StopSignalsPostponed(const StopSignalsPostponed&) = delete;
  StopSignalsPostponed& operator=(const StopSignalsPostponed&) = delete;
};

} // namespace bxm
