#include "ferry/logging/log_system.h"
#include "ferry/logging/logger.h"
#include "ferry/text/text_file.h"
#include "ferry/text/unicode_string.h"

#include <optional>

namespace {

constexpr int64_t CHECK_INTERVAL = 60000; // milliseconds

std::optional<int64_t> FileTime_n(const UnicodeString& sFile) {
  struct stat obStat {};
  if (CLogSystem::Get_rob().Stat_n(UCSS::ucsToDCP(sFile), obStat) != 0) return std::nullopt;
  return obStat.st_mtime;
}

// The whole file, or nothing when it cannot be read to its end.
std::optional<UnicodeString> FileText_s(const UnicodeString& sFile) {
  const TextFilePtr pobFile = OpenTextFile_pob(UCSS::ucsToDCP(sFile));
  if (!pobFile) return std::nullopt;
  std::string sBytes;
  for (int c = std::fgetc(pobFile.get()); c != EOF; c = std::fgetc(pobFile.get()))
    sBytes.push_back(static_cast<char>(c));
  const bool bFailed = std::ferror(pobFile.get()) != 0;
  if (bFailed) return std::nullopt;
  UnicodeString sText(sBytes.data(), static_cast<int32_t>(sBytes.size()));
  if (sText.startsWith(u"\uFEFF")) sText.remove(0, 1);
  return sText;
}

// What a load reports must not lead to another look, however the clock jumps.
class CLookingEnds {
public:
  explicit CLookingEnds(std::atomic<bool>& bLooking) : m_bLooking(bLooking) {}
  ~CLookingEnds() { m_bLooking = false; }

private:
  std::atomic<bool>& m_bLooking;
};

} // namespace

bool CLogger::LoadConfigFile_b(const UChar* pPath) {
  UnicodeString sPath(pPath);
  // The time is taken first: a change while the file is read is found by the next look.
  const int64_t nTime = FileTime_n(sPath).value_or(0);
  const auto sText = FileText_s(sPath);
  if (!sText) {
    Report_v(CSeverity::ERR, u"Failed to open configuration file [%S]. Retaining current config.",
             sPath.getTerminatedBuffer());
    return false;
  }
  if (!Load_b(*sText, {sPath, nTime})) {
    Report_v(CSeverity::ERR, u"Failed to load new config file %S", sPath.getTerminatedBuffer());
    return false;
  }
  Report_v(CSeverity::DBUG, u"Successfully loaded config file %S", sPath.getTerminatedBuffer());
  return true;
}

void CLogger::WatchFile_v(const CMsg& obMsg) {
  Source obSource;
  {
    const CLoggerLock::Hold obHold(m_obLock, CLoggerLock::Mode::Shared);
    if (m_obSource.m_sFile.isEmpty()) return;
    obSource = {OwnCopy_s(m_obSource.m_sFile), m_obSource.m_nTime};
  }
  if (m_bLooking || !TimeToLook_b(obMsg) || m_bLooking.exchange(true)) return;
  const CLookingEnds obEnd(m_bLooking);
  const auto nTime = FileTime_n(obSource.m_sFile);
  if (!nTime)
    Report_v(CSeverity::ERR, u"Failed to stat logger config file: %S",
             obSource.m_sFile.getTerminatedBuffer());
  else if (*nTime != obSource.m_nTime)
    LoadConfigFile_b(obSource.m_sFile.getTerminatedBuffer());
}

// Whether a minute has passed since the last look, by the clock of the messages. Of several threads
// that find so, one is told to look.
bool CLogger::TimeToLook_b(const CMsg& obMsg) {
  if (!obMsg.Time_n()) obMsg.SetTime_v(CLogSystem::Get_rob().Now_n());
  int64_t nLast = m_nLastCheck;
  while (obMsg.Time_n() - nLast > CHECK_INTERVAL)
    if (m_nLastCheck.compare_exchange_weak(nLast, obMsg.Time_n())) return true;
  return false;
}
