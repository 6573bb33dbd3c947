#include "ferry/config/replace_file.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool WriteAll_b(int nFile, const std::string& sText) {
  size_t nDone = 0;
  while (nDone < sText.size()) {
    const ssize_t n = ::write(nFile, sText.data() + nDone, sText.size() - nDone);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    nDone += static_cast<size_t>(n);
  }
  return true;
}

/// Closes in any case; some file systems tell of a full disk only then.
bool WriteAndClose_b(int nFile, const std::string& sText, bool bSync) {
  const bool bWritten = WriteAll_b(nFile, sText) && (!bSync || ::fsync(nFile) == 0);
  return ::close(nFile) == 0 && bWritten;
}

bool WriteInPlace_b(const std::string& sFile, const std::string& sText) {
  const int nFile = ::open(sFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  return nFile >= 0 && WriteAndClose_b(nFile, sText, false);
}

bool IsRegular_b(const std::string& sFile, struct stat& obStat) {
  return ::stat(sFile.c_str(), &obStat) == 0 && S_ISREG(obStat.st_mode);
}

/// Owner and permissions of the file that is replaced; false when the new file would
/// change hands, as with a file of another user that this one's group may write.
bool TakeAfter_b(int nFile, const struct stat& obOld) {
  if (obOld.st_uid != ::geteuid() || obOld.st_gid != ::getegid())
    if (::fchown(nFile, obOld.st_uid, obOld.st_gid) != 0) return false;
  return ::fchmod(nFile, obOld.st_mode & 07777) == 0;
}

} // namespace

bool ReplaceFile_b(const std::string& sFile, const std::string& sText) {
  struct stat obOld {};
  if (!IsRegular_b(sFile, obOld)) return WriteInPlace_b(sFile, sText);
  if (::access(sFile.c_str(), W_OK) != 0) return false;

  std::error_code obError;
  const std::string sTarget = std::filesystem::canonical(sFile, obError).string();
  std::string sNew = sTarget + ".XXXXXX";
  const int nNew = obError ? -1 : ::mkstemp(sNew.data());
  if (nNew < 0) return WriteInPlace_b(sFile, sText);
  if (!TakeAfter_b(nNew, obOld)) {
    ::close(nNew);
    ::unlink(sNew.c_str());
    return WriteInPlace_b(sFile, sText);
  }
  if (WriteAndClose_b(nNew, sText, true) && ::rename(sNew.c_str(), sTarget.c_str()) == 0)
    return true;
  ::unlink(sNew.c_str());
  return false;
}
