#include "manager/store/log/patience.h"

#include "bx/bx.h"
#include "manager/store/failure.h"

#include <cerrno>
#include <cstdio>
#include <ctime>

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

void notice(const std::string& text) { std::fprintf(stderr, "bxm: %s\n", text.c_str()); }

} // namespace bxm
