#include "manager/store/log/waiting.h"

#include "bx/bx.h"
#include "manager/base/failure.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <initializer_list>

namespace bxm {

std::chrono::milliseconds Patience::waited() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               m_begin);
}

void Patience::wait() {
  if (!m_told && waited() >= std::chrono::seconds(1)) {
    notice("waiting for " + m_what);
    m_told = true;
  }
  const timespec some{0, 2'000'000};
  if (::nanosleep(&some, nullptr) != 0 && errno == EINTR)
    throw Failure(BXRC_Q_MGR_NOT_AVAILABLE, "interrupted while waiting for " + m_what);
}

StopSignalsWait::StopSignalsWait() noexcept {
  sigset_t stops;
  ::sigemptyset(&stops);
  for (const int signal : {SIGTSTP, SIGTTIN, SIGTTOU}) ::sigaddset(&stops, signal);
  ::pthread_sigmask(SIG_BLOCK, &stops, &m_before);
}

StopSignalsWait::~StopSignalsWait() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

void notice(const std::string& text) { std::fprintf(stderr, "bxm: %s\n", text.c_str()); }

} // namespace bxm
