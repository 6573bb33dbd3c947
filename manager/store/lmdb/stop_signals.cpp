#include "manager/store/lmdb/stop_signals.h"

#include "manager/store/process_local.h"

#include <array>
#include <atomic>
#include <mutex>
#include <unistd.h>

namespace bxm {

namespace {

constexpr std::array kStopSignals{SIGTSTP, SIGTTIN, SIGTTOU};

std::atomic<int> noted{0}; ///< the signal to be sent again, 0 for none

struct Postponements {
  std::mutex mutex;
  int count = 0;
};

/// As in the kernel, a stop that still waits is over when the process is told to go on.
void note(int signal) { noted = signal == SIGCONT ? 0 : signal; }

void exchangeHandler(int signal, void (*from)(int), void (*to)(int)) {
  struct sigaction action {};
  if (::sigaction(signal, nullptr, &action) != 0 || action.sa_handler != from) return;
  action = {};
  action.sa_handler = to;
  action.sa_flags = SA_RESTART;
  ::sigaction(signal, &action, nullptr);
}

void exchangeHandlers(void (*from)(int), void (*to)(int)) {
  for (const int signal : kStopSignals) exchangeHandler(signal, from, to);
  exchangeHandler(SIGCONT, from, to);
}

} // namespace

StopSignalsWait::StopSignalsWait() noexcept {
  sigset_t stops;
  ::sigemptyset(&stops);
  for (const int signal : kStopSignals) ::sigaddset(&stops, signal);
  ::pthread_sigmask(SIG_BLOCK, &stops, &m_before);
}

StopSignalsWait::~StopSignalsWait() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

StopSignalsPostponed::StopSignalsPostponed() {
  auto& present = ProcessLocal<Postponements>::get();
  const std::lock_guard guard(present.mutex);
  if (present.count++ == 0) exchangeHandlers(SIG_DFL, note);
}

StopSignalsPostponed::~StopSignalsPostponed() {
  auto& present = ProcessLocal<Postponements>::get();
  const std::lock_guard guard(present.mutex);
  if (--present.count > 0) return;
  exchangeHandlers(note, SIG_DFL);
  if (const int signal = noted.exchange(0)) ::kill(::getpid(), signal);
}

} // namespace bxm
