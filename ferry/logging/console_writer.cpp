#include "ferry/logging/console_writer.h"

#include "ferry/logging/log_writer.h"

std::mutex CConsoleWriter::mutex;

void CConsoleWriter::Start_v(const URIUC& obDestination) {
  m_pStream = obDestination.Host_rob() == u"stdout" ? stdout : stderr;
  const UnicodeString* pStyle = obDestination.FindQuery_pob(u"style");
  m_bBare = pStyle && *pStyle == u"bare";
}

void CConsoleWriter::Write_v(const UnicodeString& sTime, const UnicodeString& sSeverity,
                             const UnicodeString& sCategory,
                             const std::vector<UnicodeString>& obLines) {
  const std::scoped_lock obGuard(mutex);
  PrintLogLines_b(m_pStream, m_bBare, sTime, sSeverity, sCategory, obLines);
  std::fflush(m_pStream);
}

CConsoleWriterFactory& CConsoleWriterFactory::Instance_rob() {
  static CConsoleWriterFactory obFactory;
  return obFactory;
}
