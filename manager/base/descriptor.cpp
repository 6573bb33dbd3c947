#include "manager/base/descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace bxm {

int apartFromStandardStreams(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int apart = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  ::close(descriptor);
  errno = error;
  return apart;
}

} // namespace bxm
