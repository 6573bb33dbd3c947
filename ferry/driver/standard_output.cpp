#include "ferry/driver/standard_output.h"

#include "ferry/driver/interruption.h"
#include "ferry/driver/standard_streams.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t BUFFER_SIZE = 65536;

void AwaitRoom_v() {
  struct pollfd obPoll = {STDOUT_FILENO, POLLOUT, 0};
  ::poll(&obPoll, 1, -1);
}

// Leaves whole lines of what was written.
void CutTornLine_v(std::string_view sWritten) {
  const auto nTorn = static_cast<off_t>(sWritten.size() - (sWritten.rfind('\n') + 1));
  const off_t nEnd = CStandardOutput::End_n();
  if (nEnd >= nTorn) CStandardOutput::CutBack_v(nEnd - nTorn);
}

// False with errno set when not all of it could be written. A signal does not end it: the record
// was taken from its queue already.
bool WriteAll_b(const std::string_view sAll) {
  std::string_view sText = sAll;
  while (!sText.empty()) {
    const ssize_t nWritten = ::write(STDOUT_FILENO, sText.data(), sText.size());
    if (nWritten >= 0)
      sText.remove_prefix(static_cast<size_t>(nWritten));
    else if (errno == EAGAIN)
      AwaitRoom_v();
    else if (errno != EINTR) {
      const int nError = errno;
      CutTornLine_v(sAll.substr(0, sAll.size() - sText.size()));
      errno = nError;
      return false;
    }
  }
  return true;
}

// Files and devices such as /dev/null always have room, and nobody leaves.
bool HasReader_b(const struct stat& obStatus) {
  return S_ISFIFO(obStatus.st_mode) || S_ISSOCK(obStatus.st_mode) || ::isatty(STDOUT_FILENO) != 0;
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

off_t CStandardOutput::End_n() {
  struct stat obStatus {};
  if (::fstat(STDOUT_FILENO, &obStatus) != 0 || !S_ISREG(obStatus.st_mode)) return -1;
  return ::lseek(STDOUT_FILENO, 0, SEEK_CUR) == obStatus.st_size ? obStatus.st_size : -1;
}

void CStandardOutput::CutBack_v(off_t nEnd) {
  if (nEnd >= 0 && End_n() > nEnd && ::ftruncate(STDOUT_FILENO, nEnd) == 0)
    ::lseek(STDOUT_FILENO, nEnd, SEEK_SET);
}

CStandardOutput::CStandardOutput() {
  struct stat obStatus {};
  m_bHasReader = ::fstat(STDOUT_FILENO, &obStatus) != 0 || HasReader_b(obStatus);
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

void CStandardOutput::AwaitReader_v() const {
  if (!m_bHasReader) return;
  const short nEvents = CInterruption::Wait_n(STDOUT_FILENO, POLLOUT, -1);
  if ((nEvents & (POLLERR | POLLHUP)) == 0) return;
  errno = EPIPE;
  ThrowStreamError("Cannot write to standard output");
}
