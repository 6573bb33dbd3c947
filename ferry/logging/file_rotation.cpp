#include "ferry/logging/file_writer.h"
#include "ferry/logging/log_system.h"

#include <algorithm>

namespace {

std::string CopyName_s(const std::string& sPath, uint32_t nCopy) {
  return sPath + "." + std::to_string(nCopy);
}

/// The number of copies without a gap from number 0 on.
uint32_t CountCopies_n(const std::string& sPath) {
  struct stat obStat {};
  uint32_t n = 0;
  while (CLogSystem::Get_rob().Stat_n(CopyName_s(sPath, n), obStat) == 0) ++n;
  return n;
}

} // namespace

// Each copy moves one place up, the oldest falls off; with keep=3:
//
//   a.log  -> a.log.0
//   a.log.0 -> a.log.1
//   a.log.1 -> a.log.2
//   a.log.2 -> deleted
//
// The moves are made from the bottom of the picture upwards.
void CFileWriter::DoRotate_v(const UnicodeString& sPath, unsigned nKeep) {
  CLogSystem& obSystem = CLogSystem::Get_rob();
  const std::string sFile = UCSS::ucsToDCP(sPath);
  if (nKeep == 0) {
    obSystem.Unlink_n(sFile);
    return;
  }
  uint32_t nTop = CountCopies_n(sFile);
  if (nKeep != kKeepAll) nTop = std::min(nTop, nKeep - 1);
  obSystem.Unlink_n(CopyName_s(sFile, nTop));
  for (uint32_t n = nTop; n > 0; --n)
    obSystem.Rename_n(CopyName_s(sFile, n - 1), CopyName_s(sFile, n));
  obSystem.Rename_n(sFile, CopyName_s(sFile, 0));
}
