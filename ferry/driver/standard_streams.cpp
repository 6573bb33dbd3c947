#include "ferry/driver/standard_streams.h"

#include "ferry/driver/interruption.h"
#include "ferry/driver/progress_line.h"
#include "ferry/errors/exception.h"
#include "ferry/text/ucss.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

int s_nLastWait = 1000; // milliseconds for the last notices once a signal asked for the end

bool AwaitRoom_b() {
  if (CInterruption::Signal_n() == 0 && CInterruption::Wait_n(STDERR_FILENO, POLLOUT, -1) != 0)
    return true;
  struct pollfd obPoll = {STDERR_FILENO, POLLOUT, 0};
  int nReady = 0;
  do nReady = ::poll(&obPoll, 1, s_nLastWait);
  while (nReady < 0 && errno == EINTR);
  if (nReady == 0) s_nLastWait = 0;
  return nReady > 0;
}

} // namespace

void GuardStandardStreams_v() {
  for (const int nDescriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(nDescriptor, F_GETFD) != -1) continue;
    // open takes the lowest free number. The mode is the wrong one, so that using it fails.
    ::open("/dev/null", nDescriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

bool AwaitErrorRoom_b() {
  if (!AwaitRoom_b()) return false;
  CProgressLine::Wipe_v();
  return true;
}

void WriteNotice_v(std::string_view sText) {
  while (!sText.empty() && AwaitErrorRoom_b()) {
    const ssize_t nWritten = ::write(STDERR_FILENO, sText.data(), sText.size());
    if (nWritten > 0) sText.remove_prefix(static_cast<size_t>(nWritten));
    if (nWritten < 0 && errno != EINTR && errno != EAGAIN) return;
  }
}

void ThrowStreamError(const char* pText) {
  const int nError = errno;
  UnicodeString sText;
  UCSS::ssprintf(sText, u"%s: %s", pText, std::strerror(nError));
  throw VRK_Exception::genericError("", sText, nError, VRK_CRITICAL_ERROR);
}
