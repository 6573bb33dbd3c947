#include "manager/store/log/stop_signals.h"

#include <initializer_list>

namespace bxm {

StopSignalsWait::StopSignalsWait() noexcept {
  sigset_t stops;
  ::sigemptyset(&stops);
  for (const int signal : {SIGTSTP, SIGTTIN, SIGTTOU}) ::sigaddset(&stops, signal);
  ::pthread_sigmask(SIG_BLOCK, &stops, &m_before);
}

StopSignalsWait::~StopSignalsWait() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

} // namespace bxm
