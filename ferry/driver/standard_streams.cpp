#include "ferry/driver/standard_streams.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

void GuardStandardStreams_v() {
  for (const int nDescriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(nDescriptor, F_GETFD) != -1) continue;
    // open takes the lowest free number. The mode is the wrong one, so that using it fails.
    ::open("/dev/null", nDescriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

void WriteNotice_v(std::string_view sText) {
  while (!sText.empty()) {
    const ssize_t nWritten = ::write(STDERR_FILENO, sText.data(), sText.size());
    if (nWritten > 0) sText.remove_prefix(static_cast<size_t>(nWritten));
    if (nWritten < 0 && errno == EAGAIN) {
      struct pollfd obPoll = {STDERR_FILENO, POLLOUT, 0};
      ::poll(&obPoll, 1, -1);
    } else if (nWritten < 0 && errno != EINTR) {
      return;
    }
  }
}
