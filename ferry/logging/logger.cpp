#include "ferry/logging/logger.h"

#include "ferry/logging/console_writer.h"
#include "ferry/logging/file_writer.h"
#include "ferry/logging/log_system.h"
#include "ferry/logging/log_tables.h"
#include "ferry/logging/log_writer.h"
#include "ferry/text/unicode_string.h"

#include <ctime>
#include <optional>
#include <pthread.h>

namespace {

constexpr UChar DEFAULT_CONFIG[] = u"console://stdout *.!DBUG";

// The calling thread as log lines tell it, 32 bits of its identifier.
unsigned ThreadNumber_n() { return static_cast<unsigned>(::pthread_self()); }

// As log lines show it, "03/14 15:09:26", in local time.
UnicodeString TimeText_s(int64_t nTime) {
  const std::time_t nSeconds = nTime / 1000;
  std::tm obTime{};
  ::localtime_r(&nSeconds, &obTime);
  char aText[32];
  const size_t nLength = std::strftime(aText, sizeof aText, "%m/%d %H:%M:%S", &obTime);
  return UnicodeString(aText, static_cast<int32_t>(nLength), US_INV);
}

// What one message shows in front of its lines, made when the first writer wants it.
class CMsgTexts {
public:
  CMsgTexts(const CMsg& obMsg, const UnicodeString& sCategory, const UnicodeString& sSeverity)
      : m_obMsg(obMsg), m_sSeverity(sSeverity) {
    UnicodeString sCopy(sCategory);
    UCSS::ssprintf(m_sCategory, u"%S:%u", sCopy.getTerminatedBuffer(), ThreadNumber_n());
  }

  void Write_v(CLogWriter& obWriter) {
    if (m_sTime.isEmpty()) m_sTime = TimeText_s(Time_n());
    obWriter.Write_v(m_sTime, m_sSeverity, m_sCategory, m_obMsg.Lines_rob());
  }

private:
  int64_t Time_n() const {
    return m_obMsg.Time_n() ? m_obMsg.Time_n() : CLogSystem::Get_rob().Now_n();
  }

  const CMsg& m_obMsg;
  UnicodeString m_sSeverity;
  UnicodeString m_sCategory;
  UnicodeString m_sTime;
};

} // namespace

std::atomic<CLogger*> CLogger::pobGlobalLogger = nullptr;

CLogger::CLogger(const UChar* pName) : m_sName(pName), m_pobTables(CLogTables::None_pob()) {
  RegisterSeverity_v(u"CRIT", CSeverity::CRIT);
  RegisterSeverity_v(u"ERR", CSeverity::ERR);
  RegisterSeverity_v(u"WARN", CSeverity::WARN);
  RegisterSeverity_v(u"NOTE", CSeverity::NOTE);
  RegisterSeverity_v(u"INFO", CSeverity::INFO);
  RegisterSeverity_v(u"PERF", CSeverity::PERF);
  RegisterSeverity_v(u"DBUG", CSeverity::DBUG);
  RegisterSeverity_v(u"USER", CSeverity::USER);
  // There is no more derived object yet whose own default could be meant.
  CLogger::DefaultConfig_v();
}

CLogger::~CLogger() {
  CLogger* pobSelf = this;
  pobGlobalLogger.compare_exchange_strong(pobSelf, nullptr);
  Clear_v();
}

void CLogger::DefaultConfig_v() {
  RegisterFactory_v(u"console", &CConsoleWriterFactory::Instance_rob());
  RegisterFactory_v(u"system", &CConsoleWriterFactory::Instance_rob());
  RegisterFactory_v(u"file", &CFileWriterFactory::Instance_rob());
  LoadConfig_b(DEFAULT_CONFIG);
}

void CLogger::RegisterSeverity_v(const UChar* pName, unsigned nValue) {
  const CLoggerLock::Hold obHold(m_obLock, CLoggerLock::Mode::Exclusive);
  m_obSeverities[pName] = nValue;
  m_obSeverityNames[nValue] = pName;
}

void CLogger::RegisterFactory_v(const UChar* pScheme, CLogWriterFactory* pobFactory) {
  const CLoggerLock::Hold obHold(m_obLock, CLoggerLock::Mode::Exclusive);
  m_obFactories[pScheme] = pobFactory;
}

CLogWriterFactory* CLogger::FindFactory_pob(const UnicodeString& sScheme) const {
  const CLoggerLock::Hold obHold(m_obLock, CLoggerLock::Mode::Shared);
  const auto it = m_obFactories.find(sScheme);
  return it == m_obFactories.end() ? nullptr : it->second;
}

bool CLogger::FindSeverity_b(const UnicodeString& sName, unsigned& nValue) const {
  const auto it = m_obSeverities.find(sName);
  if (it == m_obSeverities.end()) return false;
  nValue = it->second;
  return true;
}

UnicodeString CLogger::SeverityText_s(unsigned nSeverity) const {
  const auto it = m_obSeverityNames.find(nSeverity);
  return it == m_obSeverityNames.end() ? UnicodeString(u"UNKNOWN") : OwnCopy_s(it->second);
}

void CLogger::VLocalLog_v(const CMsg& obMsg) {
  WatchFile_v(obMsg);
  if (obMsg.Lines_rob().empty()) return;
  const CLoggerLock::Hold obHold(m_obLock, CLoggerLock::Mode::Shared);
  // Keeps the writers alive until this message is through, also when one of them reloads.
  const TablesPtr pobTables = m_pobTables;
  const UnicodeString& sCategory = obMsg.Category_rob().isEmpty() ? m_sName : obMsg.Category_rob();
  const auto obWriters = pobTables->Select_ob(sCategory, obMsg.Severity_n());
  if (obWriters.empty()) return;

  CMsgTexts obTexts(obMsg, sCategory, SeverityText_s(obMsg.Severity_n()));
  std::optional<VRKLog_Exception> obFailure;
  for (CLogWriter* pobWriter : obWriters) {
    try {
      obTexts.Write_v(*pobWriter);
    } catch (...) {
      obFailure.emplace(VRKLog_Exception::Caught_ob());
    }
  }
  if (obFailure) throw *obFailure;
}
