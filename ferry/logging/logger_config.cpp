#include "ferry/logging/log_tables.h"
#include "ferry/logging/log_writer.h"
#include "ferry/logging/logger.h"
#include "ferry/text/uc_string.h"
#include "ferry/text/unicode_string.h"

#include <utility>

namespace {

constexpr UChar CATEGORY[] = u"logger";

// The reports of those that could not be started.
std::vector<CMsg> StartWriters_ob(CLogTables& obTables) {
  std::vector<CMsg> obFailures;
  obTables.m_bStarted = true;
  for (const auto& [obDestination, pobWriter] : obTables.m_obWriters) {
    try {
      pobWriter->Start_v(obDestination);
    } catch (...) {
      UnicodeString sText = obDestination.Text_rob();
      obFailures.emplace_back(CATEGORY, CSeverity::ERR)
          .AddLine_rob(u"Failed to start log writer [%S]: %s", sText.getTerminatedBuffer(),
                       VRKLog_Exception::Caught_ob().what());
    }
  }
  return obFailures;
}

} // namespace

bool CLogger::LoadConfig_b(const UnicodeString& sText) { return Load_b(sText, Source()); }

bool CLogger::Load_b(const UnicodeString& sText, const Source& obSource) {
  auto pobTables = std::make_shared<CLogTables>();
  if (!ParseConfig_b(*pobTables, sText)) return false;

  std::vector<CMsg> obFailures;
  {
    const CLoggerLock::Hold obHold(m_obLock, CLoggerLock::Mode::Exclusive);
    Clear_v();
    // Not found yet by what a writer logs as it starts: none is written to before it has.
    obFailures = StartWriters_ob(*pobTables);
    Replace_v(std::move(pobTables)); // kept by nobody else, who might be the last to let go
    m_sConfig = OwnCopy_s(sText);
    m_obSource = {OwnCopy_s(obSource.m_sFile), obSource.m_nTime};
  }
  for (const CMsg& obFailure : obFailures) Report_v(obFailure);
  Report_v(CSeverity::DBUG, u"Successfully loaded new config");
  return true;
}

bool CLogger::ParseConfig_b(CLogTables& obTables, const UnicodeString& sText) {
  std::vector<UnicodeString> obLines;
  UCSS::Tokenize(sText, obLines, u"\n");
  for (const UnicodeString& sLine : obLines)
    if (!ParseLine_b(obTables, UCString(sLine).trim())) return false;
  return true;
}

bool CLogger::ParseLine_b(CLogTables& obTables, UnicodeString sLine) {
  sLine.findAndReplace(u"$NODE_NAME", m_sName);
  sLine.findAndReplace(u"$MODULE_NAME", m_sName);
  if (sLine.isEmpty() || sLine.startsWith(u"#")) return true;

  std::vector<UnicodeString> obFields;
  if (UCSS::Tokenize(sLine, obFields, u" \t\u00A0") != 2) {
    Report_v(CSeverity::ERR, u"Invalid config line: %S", sLine.getTerminatedBuffer());
    return false;
  }
  const URIUC obDestination(obFields[0]);
  CLogWriterFactory* pobFactory = FindFactory_pob(obDestination.Scheme_rob());
  if (!pobFactory) {
    UnicodeString sScheme = obDestination.Scheme_rob();
    Report_v(CSeverity::ERR, u"Unknown log type [%S] for config line: %S",
             sScheme.getTerminatedBuffer(), sLine.getTerminatedBuffer());
    return false;
  }
  std::vector<Filter> obFilters;
  if (!ParseMap_b(obFilters, obFields[1])) {
    Report_v(CSeverity::ERR, u"Invalid filter: %S", obFields[1].getTerminatedBuffer());
    return false;
  }
  auto pobWriter = NewWriter_pob(*pobFactory, sLine);
  if (!pobWriter) return false;
  obTables.AddWriter_v(obDestination, std::move(pobWriter));
  for (const auto& [sCategory, nMask] : obFilters) obTables.AddRoute_v(sCategory, nMask);
  Report_v(CSeverity::DBUG, u"Got config line: %S %S", obFields[0].getTerminatedBuffer(),
           obFields[1].getTerminatedBuffer());
  return true;
}

// Null, and a report, when the factory cannot make one.
std::unique_ptr<CLogWriter> CLogger::NewWriter_pob(CLogWriterFactory& obFactory,
                                                   UnicodeString sLine) {
  try {
    return std::unique_ptr<CLogWriter>(obFactory.CreateWriter_pob());
  } catch (...) {
    Report_v(CSeverity::ERR, u"Failed to create log writer for config line: %S: %s",
             sLine.getTerminatedBuffer(), VRKLog_Exception::Caught_ob().what());
    return nullptr;
  }
}

bool CLogger::ParseMap_b(std::vector<Filter>& obFilters, const UnicodeString& sText) const {
  const CLoggerLock::Hold obHold(m_obLock, CLoggerLock::Mode::Shared);
  obFilters.clear();
  std::vector<UnicodeString> obItems;
  UCSS::Tokenize(sText, obItems, u";");
  for (const UnicodeString& sItem : obItems) {
    const int32_t nDot = sItem.lastIndexOf(u'.');
    if (nDot < 0 || nDot + 1 == sItem.length()) return false;
    UnicodeString sCategory(sItem, 0, nDot);
    if (sCategory == u"*") sCategory.remove();
    UnicodeString sSeverity(sItem, nDot + 1);
    unsigned nMask = 0xFFFFFFFF;
    if (sSeverity != u"*") {
      const bool bNegated = sSeverity.startsWith(u"!");
      if (bNegated) sSeverity.remove(0, 1);
      if (!FindSeverity_b(sSeverity, nMask)) return false;
      if (bNegated) nMask = ~nMask;
    }
    obFilters.emplace_back(sCategory, nMask);
  }
  return !obFilters.empty();
}

void CLogger::Clear_v() {
  const CLoggerLock::Hold obHold(m_obLock, CLoggerLock::Mode::Exclusive);
  Replace_v(CLogTables::None_pob());
}

// The old writers are stopped here, unless a message of this thread, or of one that waits to load,
// is still under way to them.
void CLogger::Replace_v(TablesPtr pobTables) { m_pobTables.swap(pobTables); }

bool CLogger::ReloadConfig_b() {
  UnicodeString sFile;
  UnicodeString sConfig;
  {
    const CLoggerLock::Hold obHold(m_obLock, CLoggerLock::Mode::Shared);
    sFile = OwnCopy_s(m_obSource.m_sFile);
    sConfig = OwnCopy_s(m_sConfig);
  }
  if (!sFile.isEmpty()) return LoadConfigFile_b(sFile.getTerminatedBuffer());
  return sConfig.isEmpty() || LoadConfig_b(sConfig);
}

void CLogger::Report_v(unsigned nSeverity, const UChar* pFormat, ...) {
  CMsg obMsg(CATEGORY, nSeverity);
  va_list args;
  va_start(args, pFormat);
  obMsg.VAddLine_rob(pFormat, args);
  va_end(args);
  Report_v(obMsg);
}

void CLogger::Report_v(const CMsg& obMsg) {
  try {
    VLocalLog_v(obMsg);
  } catch (...) {
    // Whether a configuration loads must not hang on a writer that fails to report it.
  }
}
