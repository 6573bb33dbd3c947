#include "ferry/driver/options.h"

#include "ferry/driver/standard_streams.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace {

class COptionParser {
public:
  COptionParser(int nCount, const char* const* aArguments, const std::function<void()>& obDebug)
      : m_nCount(nCount), m_aArguments(aArguments), m_obDebug(obDebug) {}

  CFerryOptions Parse_ob() {
    for (m_nAt = 1; m_nAt < m_nCount; ++m_nAt)
      if (m_aArguments[m_nAt][0] == '-') Option_v(m_aArguments[m_nAt][1]);
    return m_obOptions;
  }

private:
  void Option_v(char cOption);
  void Operation_v(CFerryOptions::OPERATION nOperation, bool bPeek = false);
  void Number_v(long& nNumber, bool bLastIsWrong = true);
  const char* Value_p(bool bLastIsWrong = true);

  const int m_nCount;
  const char* const* const m_aArguments;
  const std::function<void()>& m_obDebug;
  int m_nAt = 1;
  CFerryOptions m_obOptions;
};

// The rest of the argument, or else the next one; null, after a notice, when there is none. An
// option that is the last argument has no value even when one is attached, unless bLastIsWrong is
// false.
const char* COptionParser::Value_p(bool bLastIsWrong) {
  const bool bLast = m_nAt + 1 >= m_nCount;
  const char* pAttached = m_aArguments[m_nAt] + 2;
  if (bLast && (bLastIsWrong || *pAttached == '\0')) {
    WriteNotice_v("Invalid number of parameters.\n");
    m_obOptions.nOperation = CFerryOptions::OP_USAGE;
    return nullptr;
  }
  return *pAttached != '\0' ? pAttached : m_aArguments[++m_nAt];
}

void COptionParser::Operation_v(CFerryOptions::OPERATION nOperation, bool bPeek) {
  const char* pValue = Value_p();
  if (!pValue) return;
  m_obOptions.nOperation = nOperation;
  m_obOptions.sQueue = UnicodeString(pValue);
  m_obOptions.bPeek |= bPeek;
}

void COptionParser::Number_v(long& nNumber, bool bLastIsWrong) {
  if (const char* pValue = Value_p(bLastIsWrong)) nNumber = ParseNumber_n(pValue);
}

void COptionParser::Option_v(char cOption) {
  switch (cOption) {
  case 'C': return Operation_v(CFerryOptions::OP_CREATE);
  case 'f': return Operation_v(CFerryOptions::OP_FILE_TO_QUEUE);
  case 'k': return Operation_v(CFerryOptions::OP_CLEAN);
  case 'p': return Operation_v(CFerryOptions::OP_QUEUE_TO_FILE, true);
  case 'r': return Operation_v(CFerryOptions::OP_QUEUE_TO_FILE);
  case 's': return Operation_v(CFerryOptions::OP_STATUS);
  case 'X':
  case 'x': return Operation_v(CFerryOptions::OP_DELETE);
  case 'i':
    if (const char* pValue = Value_p()) {
      m_obOptions.nOperation = CFerryOptions::OP_DISTRIBUTE;
      m_obOptions.sSection = pValue;
    }
    return;
  case 'm':
    if (const char* pValue = Value_p()) m_obOptions.sManager = UnicodeString(pValue);
    return;
  case 'c': return Number_v(m_obOptions.nCount);
  case 't': return Number_v(m_obOptions.nPause);
  case 'l': return Number_v(m_obOptions.nPriority);
  case 'o': return Number_v(m_obOptions.nExpire, false);
  case 'T': m_obOptions.bCreateFlag = true; return;
  case 'd': return m_obDebug();
  case 'h': m_obOptions.nOperation = CFerryOptions::OP_USAGE; return;
  default:
    WriteNotice_v(std::string("Invalid flag [") + cOption + "]\n");
    m_obOptions.nOperation = CFerryOptions::OP_USAGE;
  }
}

constexpr char USAGE[] =
    "*******************************************************************************\n"
    "**  ferry " FERRY_VERSION "\n"
    "**  Message Queue Utility\n"
    "**  Lines of text between pipes and durable queues\n"
    "**  \n"
    "**  Licensed under the Apache License, Version 2.0. It comes without warranty\n"
    "**  of any kind.\n"
    "*******************************************************************************\n"
    "\n"
    "Usage:\n"
    " ferry -C qname [-m manager]\n"
    " ferry -f qname [-m manager] [-c count] [-t pause] [-l priority] [-o expire]\n"
    " ferry -i configsection\n"
    " ferry -k qname [-m manager] [-c count]\n"
    " ferry -p qname [-m manager] [-c count]\n"
    " ferry -r qname [-m manager] [-c count]\n"
    " ferry -s qname [-m manager]\n"
    " ferry -X qname [-m manager]\n"
    "\n"
    "Operations:\n"
    " -C          Create queue\n"
    " -f qname    Copy records from stdin in\n"
    " -i section  Send to multiple queues based on section in ferry.ini\n"
    " -k qname    Delete records\n"
    " -p qname    Peek records to stdout\n"
    " -r qname    Read records to stdout (records are removed)\n"
    " -s qname    Display status\n"
    " -X qname    Delete queue\n"
    "\n"
    "Modifiers:\n"
    " -m manager  Specifies non-default queue manager\n"
    " -c count    Limit operation to count records\n"
    " -t pause    Milliseconds to wait between record operations\n"
    " -l priority Priority level of records\n"
    " -o expire   Number of seconds before a record expires.\n";

} // namespace

CFerryOptions ParseOptions(int nCount, const char* const* aArguments,
                           const std::function<void()>& obDebug) {
  return COptionParser(nCount, aArguments, obDebug).Parse_ob();
}

long ParseNumber_n(const char* pText) {
  if (*pText == '\0') return -1;
  using Limits = std::numeric_limits<int32_t>;
  return std::clamp<long>(std::strtol(pText, nullptr, 10), Limits::min(), Limits::max());
}

void InvalidCommand() { WriteNotice_v(USAGE); }
