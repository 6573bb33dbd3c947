#include "ferry/text/text_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

int Open_n(const std::string& sPath) {
  constexpr int FLAGS = O_RDONLY | O_CLOEXEC | O_NOCTTY;
  const int nFile = ::open(sPath.c_str(), FLAGS | O_NONBLOCK);
  // Only a regular file that another process holds a lease on, and is about to give up.
  return nFile < 0 && errno == EWOULDBLOCK ? ::open(sPath.c_str(), FLAGS) : nFile;
}

bool IsNullDevice_b(const struct stat& obStat) {
  return S_ISCHR(obStat.st_mode) && obStat.st_rdev == ::makedev(1, 3);
}

bool Ends_b(int nFile) {
  struct stat obStat {};
  return ::fstat(nFile, &obStat) == 0 && (S_ISREG(obStat.st_mode) || IsNullDevice_b(obStat));
}

} // namespace

TextFilePtr OpenTextFile_pob(const std::string& sPath) {
  const int nFile = Open_n(sPath);
  if (nFile < 0) return nullptr;
  if (Ends_b(nFile)) return TextFilePtr(::fdopen(nFile, "r"));
  ::close(nFile);
  return nullptr;
}
