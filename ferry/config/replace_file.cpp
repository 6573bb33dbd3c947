#include "ferry/config/replace_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool WriteAll_b(int nFile, std::string_view sText) {
  while (!sText.empty()) {
    const ssize_t n = ::write(nFile, sText.data(), sText.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    sText.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

// True as well for what has no disk to be on, a pipe or a device.
bool Sync_b(int nFile) { return ::fsync(nFile) == 0 || errno == EINVAL; }

// Closes in any case; some file systems tell of a full disk only then.
bool WriteAndClose_b(int nFile, const std::string& sText) {
  const bool bWritten = WriteAll_b(nFile, sText) && Sync_b(nFile);
  return ::close(nFile) == 0 && bWritten;
}

// Makes the entry of a new file last; where folders cannot be synced nothing can be done.
void SyncFolder_v(const std::string& sFile) {
  const std::string sFolder = std::filesystem::path(sFile).parent_path().string();
  const int nFolder = ::open(sFolder.empty() ? "." : sFolder.c_str(), O_RDONLY | O_CLOEXEC);
  if (nFolder < 0) return;
  ::fsync(nFolder);
  ::close(nFolder);
}

// For a file that is not there yet, and for a pipe or a device.
bool WriteAnew_b(const std::string& sFile, const std::string& sText) {
  const int nFile = ::open(sFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (nFile < 0 || !WriteAndClose_b(nFile, sText)) return false;
  SyncFolder_v(sFile);
  return true;
}

// What the new text is longer by goes first: a full disk shows while the old text is whole and
// needs only be cut off again.
bool Overwrite_b(int nFile, std::string_view sText) {
  const off_t nOld = ::lseek(nFile, 0, SEEK_END);
  const auto nStart = static_cast<size_t>(std::min(nOld, static_cast<off_t>(sText.size())));
  if (!WriteAll_b(nFile, sText.substr(nStart)) || !Sync_b(nFile)) {
    [[maybe_unused]] const int nCut = ::ftruncate(nFile, nOld);
    return false;
  }
  return ::lseek(nFile, 0, SEEK_SET) == 0 && WriteAll_b(nFile, sText.substr(0, nStart)) &&
         ::ftruncate(nFile, static_cast<off_t>(sText.size())) == 0 && Sync_b(nFile);
}

bool WriteInPlace_b(const std::string& sFile, const std::string& sText) {
  const int nFile = ::open(sFile.c_str(), O_WRONLY | O_CLOEXEC);
  if (nFile < 0) return false;
  const bool bWritten = Overwrite_b(nFile, sText);
  return ::close(nFile) == 0 && bWritten;
}

bool IsRegular_b(const std::string& sFile, struct stat& obStat) {
  return ::stat(sFile.c_str(), &obStat) == 0 && S_ISREG(obStat.st_mode);
}

bool HasAttribute_b(const std::string& sFile, uint64_t nAttribute) {
  struct statx obStat {};
  return ::statx(AT_FDCWD, sFile.c_str(), 0, 0, &obStat) == 0 &&
         (obStat.stx_attributes & nAttribute) != 0;
}

// Whether it is known beforehand that no other file can take the place of this one. An append-only
// folder would not even let go of the other file.
bool IsPinned_b(const std::string& sFile) {
  return HasAttribute_b(sFile, STATX_ATTR_MOUNT_ROOT) ||
         HasAttribute_b(std::filesystem::path(sFile).parent_path().string(), STATX_ATTR_APPEND);
}

// Owner and permissions of the file that is replaced; false when the new file would change hands,
// as with a file of another user that this one's group may write.
bool TakeAfter_b(int nFile, const struct stat& obOld) {
  if (obOld.st_uid != ::geteuid() || obOld.st_gid != ::getegid())
    if (::fchown(nFile, obOld.st_uid, obOld.st_gid) != 0) return false;
  return ::fchmod(nFile, obOld.st_mode & 07777) == 0;
}

enum class Outcome { Done, Failed, NotPossible };

// Fills the new file and puts it into the place of the old one.
Outcome FillAndMove_e(int nNew, const std::string& sNew, const std::string& sFile,
                      const struct stat& obOld, const std::string& sText) {
  if (!TakeAfter_b(nNew, obOld)) {
    ::close(nNew);
    return Outcome::NotPossible;
  }
  if (!WriteAndClose_b(nNew, sText)) return Outcome::Failed;
  if (::rename(sNew.c_str(), sFile.c_str()) != 0) return Outcome::NotPossible;
  SyncFolder_v(sFile);
  return Outcome::Done;
}

Outcome Replace_e(const std::string& sFile, const struct stat& obOld, const std::string& sText) {
  if (IsPinned_b(sFile)) return Outcome::NotPossible;
  std::string sNew = sFile + ".XXXXXX";
  const int nNew = ::mkstemp(sNew.data());
  if (nNew < 0) return Outcome::NotPossible;
  const Outcome eOutcome = FillAndMove_e(nNew, sNew, sFile, obOld, sText);
  if (eOutcome != Outcome::Done) ::unlink(sNew.c_str());
  return eOutcome;
}

} // namespace

bool ReplaceFile_b(const std::string& sFile, const std::string& sText) {
  struct stat obOld {};
  if (!IsRegular_b(sFile, obOld)) return WriteAnew_b(sFile, sText);
  if (::access(sFile.c_str(), W_OK) != 0) return false;

  std::error_code obError;
  const std::string sTarget = std::filesystem::canonical(sFile, obError).string();
  const Outcome eOutcome = obError ? Outcome::NotPossible : Replace_e(sTarget, obOld, sText);
  return eOutcome == Outcome::NotPossible ? WriteInPlace_b(sFile, sText)
                                          : eOutcome == Outcome::Done;
}
