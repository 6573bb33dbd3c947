#include "ferry/driver/standard_output.h"

#include "ferry/driver/stream_error.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t BUFFER_SIZE = 65536;

short Poll_n(short nEvents, int nMilliseconds) {
  struct pollfd obPoll = {STDOUT_FILENO, nEvents, 0};
  return ::poll(&obPoll, 1, nMilliseconds) > 0 ? obPoll.revents : short(0);
}

// False with errno set when not all of it could be written. A signal does not end it: the record
// was taken from its queue already.
bool WriteAll_b(std::string_view sText) {
  while (!sText.empty()) {
    const ssize_t nWritten = ::write(STDOUT_FILENO, sText.data(), sText.size());
    if (nWritten >= 0)
      sText.remove_prefix(static_cast<size_t>(nWritten));
    else if (errno == EAGAIN)
      Poll_n(POLLOUT, -1);
    else if (errno != EINTR)
      return false;
  }
  return true;
}

// A file that has reached the limit on the size of files.
bool AtLimit_b(const struct stat& obStatus) {
  struct rlimit obLimit {};
  if (!S_ISREG(obStatus.st_mode) || ::getrlimit(RLIMIT_FSIZE, &obLimit) != 0) return false;
  const bool bAppends = (::fcntl(STDOUT_FILENO, F_GETFL) & O_APPEND) != 0;
  const off_t nPlace = bAppends ? obStatus.st_size : ::lseek(STDOUT_FILENO, 0, SEEK_CUR);
  if (obLimit.rlim_cur == RLIM_INFINITY || static_cast<rlim_t>(nPlace) < obLimit.rlim_cur)
    return false;
  errno = EFBIG;
  return true;
}

} // namespace

CStandardOutput::CStandardOutput() {
  struct stat obStatus {};
  m_bHasReader = ::fstat(STDOUT_FILENO, &obStatus) != 0 || !S_ISREG(obStatus.st_mode);
  // What can never be written to says so before the first record is taken.
  if (S_ISSOCK(obStatus.st_mode)) return;
  if (::write(STDOUT_FILENO, "", 0) < 0 || AtLimit_b(obStatus))
    ThrowStreamError("Cannot write to standard output");
}

CStandardOutput::~CStandardOutput() { WriteAll_b(m_sBuffer); }

void CStandardOutput::Add_v(std::string_view sText) {
  m_sBuffer.append(sText);
  if (m_sBuffer.size() >= BUFFER_SIZE) Flush_v();
}

void CStandardOutput::Write_v(std::string_view sText) {
  Flush_v();
  if (!WriteAll_b(sText)) ThrowStreamError("Cannot write to standard output");
}

void CStandardOutput::Flush_v() {
  const bool bWritten = WriteAll_b(m_sBuffer);
  m_sBuffer.clear();
  if (!bWritten) ThrowStreamError("Cannot write to standard output");
}

void CStandardOutput::CheckReader_v() const {
  if (!m_bHasReader || (Poll_n(0, 0) & (POLLERR | POLLHUP)) == 0) return;
  errno = EPIPE;
  ThrowStreamError("Cannot write to standard output");
}
