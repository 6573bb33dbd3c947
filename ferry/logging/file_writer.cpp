#include "ferry/logging/file_writer.h"

#include "ferry/errors/error_message.h"
#include "ferry/logging/log_system.h"
#include "ferry/logging/log_writer.h"
#include "ferry/logging/logger.h"

#include <algorithm>
#include <unistd.h>

namespace {

constexpr int64_t CHECK_INTERVAL = 60000; // milliseconds

// A parameter as 32 bits, which a large value wraps around.
uint32_t Number_n(const URIUC& obDestination, const UnicodeString& sName, uint32_t nDefault) {
  const UnicodeString* pText = obDestination.FindQuery_pob(sName);
  return pText ? static_cast<uint32_t>(UCSS::atoi(*pText)) : nDefault;
}

VRKLog_Exception Failure_ob(const UChar* pTemplate, const UnicodeString& sPath) {
  return VRKLog_Exception("", KELErrorMessage(u"0000E", pTemplate, {sPath}), 1, VRK_CRITICAL_ERROR,
                          false);
}

// Whether somebody's last line is torn, as on a disk that was full.
bool EndsWithinLine_b(FILE* pFile) {
  struct stat obStat {};
  char c = '\n';
  return ::fstat(::fileno(pFile), &obStat) == 0 && S_ISREG(obStat.st_mode) && obStat.st_size > 0 &&
         ::pread(::fileno(pFile), &c, 1, obStat.st_size - 1) == 1 && c != '\n';
}

std::string CopyName_s(const std::string& sPath, uint32_t nCopy) {
  return sPath + "." + std::to_string(nCopy);
}

// The number of copies without a gap from number 0 on.
uint32_t CountCopies_n(const std::string& sPath) {
  struct stat obStat {};
  uint32_t n = 0;
  while (CLogSystem::Get_rob().Stat_n(CopyName_s(sPath, n), obStat) == 0) ++n;
  return n;
}

} // namespace

CFileWriter::~CFileWriter() { Close_v(); }

void CFileWriter::Start_v(const URIUC& obDestination) {
  const std::scoped_lock obGuard(m_obMutex);
  Close_v();
  m_nLastCheck = 0;
  m_sPath = obDestination.Host_rob() + obDestination.Path_rob();
  ReadParameters_v(obDestination);
}

void CFileWriter::ReadParameters_v(const URIUC& obDestination) {
  const UnicodeString* pStyle = obDestination.FindQuery_pob(u"style");
  m_bBare = pStyle && *pStyle == u"bare";
  m_nKeep = Number_n(obDestination, u"keep", KEEP_ALL);
  m_nRotateSize = Number_n(obDestination, u"rotateSize", 0) * 1024;
  m_nRotateAge = Number_n(obDestination, u"rotateAge", 0) * 3600;
  m_bRotate = m_nRotateSize != 0 || m_nRotateAge != 0;
}

void CFileWriter::Write_v(const UnicodeString& sTime, const UnicodeString& sSeverity,
                          const UnicodeString& sCategory,
                          const std::vector<UnicodeString>& obLines) {
  // A file writer that fails must not be handed its own failure.
  if (sCategory.startsWith(u"filewriter:")) return;
  UnicodeString sPath;
  {
    const std::scoped_lock obGuard(m_obMutex);
    Open_v();
    if (PrintLogLines_b(m_pFile, m_bBare, sTime, sSeverity, sCategory, obLines) &&
        std::fflush(m_pFile) == 0) {
      RotateIfGrown_v();
      return;
    }
    Close_v(); // opened anew, the file shows whether a line was torn
    sPath = m_sPath;
  }
  CLogger::TryLog_b(u"filewriter", CSeverity::CRIT, u"Failed to write to log file: %S",
                    sPath.getTerminatedBuffer());
  throw Failure_ob(u"Failed to write to log file: {0}", sPath);
}

void CFileWriter::Stop_v() {
  const std::scoped_lock obGuard(m_obMutex);
  Close_v();
}

void CFileWriter::Open_v() {
  if (m_pFile) return;
  m_pFile = CLogSystem::Get_rob().Open_pob(UCSS::ucsToDCP(m_sPath), "a+");
  if (!m_pFile) throw Failure_ob(u"Failed to open log file: {0}", m_sPath);
  if (EndsWithinLine_b(m_pFile)) std::fputc('\n', m_pFile);
}

void CFileWriter::Close_v() {
  if (m_pFile) std::fclose(m_pFile);
  m_pFile = nullptr;
}

void CFileWriter::RotateIfGrown_v() {
  if (!m_bRotate) return;
  const int64_t nNow = CLogSystem::Get_rob().Now_n();
  if (nNow - m_nLastCheck <= CHECK_INTERVAL) return;
  m_nLastCheck = nNow;
  if (!HasGrown_b()) return;
  Close_v();
  DoRotate_v(m_sPath, m_nKeep);
}

bool CFileWriter::HasGrown_b() const {
  struct stat obStat {};
  return m_nRotateSize != 0 && CLogSystem::Get_rob().Stat_n(UCSS::ucsToDCP(m_sPath), obStat) == 0 &&
         obStat.st_size > static_cast<int64_t>(m_nRotateSize);
}

CFileWriterFactory& CFileWriterFactory::Instance_rob() {
  static CFileWriterFactory obFactory;
  return obFactory;
}

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
  if (nKeep != KEEP_ALL) nTop = std::min(nTop, nKeep - 1);
  obSystem.Unlink_n(CopyName_s(sFile, nTop));
  for (uint32_t n = nTop; n > 0; --n)
    obSystem.Rename_n(CopyName_s(sFile, n - 1), CopyName_s(sFile, n));
  obSystem.Rename_n(sFile, CopyName_s(sFile, 0));
}
