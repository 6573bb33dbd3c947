#include "ferry/driver/options.h"

#include "ferry/driver/standard_streams.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>

class COptionParser {
public:
  COptionParser(int nCount, const char* const* aArguments, const std::function<void()>& obDebug)
      : m_nCount(nCount), m_aArguments(aArguments), m_obDebug(obDebug) {}

  CFerryOptions Parse_ob() {
    for (m_nAt = 1; m_nAt < m_nCount; ++m_nAt)
      if (m_aArguments[m_nAt][0] == '-') Option_v(m_aArguments[m_nAt][1]);
    return m_obOptions;
  }

  template <CFerryOptions::OPERATION nOperation, bool bPeek = false>
  void Operation_v();
  template <long CFerryOptions::*pNumber, bool bLastIsWrong = true>
  void Number_v();
  void Section_v();
  void Manager_v();
  void CreateFlag_v() { m_obOptions.bCreateFlag = true; }
  void Debug_v() { m_obDebug(); }
  void Usage_v() { m_obOptions.nOperation = CFerryOptions::OP_USAGE; }

private:
  void Option_v(char cOption);
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

template <CFerryOptions::OPERATION nOperation, bool bPeek>
void COptionParser::Operation_v() {
  const char* pValue = Value_p();
  if (!pValue) return;
  m_obOptions.nOperation = nOperation;
  m_obOptions.sQueue = UnicodeString(pValue);
  m_obOptions.bPeek |= bPeek;
}

template <long CFerryOptions::*pNumber, bool bLastIsWrong>
void COptionParser::Number_v() {
  if (const char* pValue = Value_p(bLastIsWrong)) m_obOptions.*pNumber = ParseNumber_n(pValue);
}

void COptionParser::Section_v() {
  const char* pValue = Value_p();
  if (!pValue) return;
  m_obOptions.nOperation = CFerryOptions::OP_DISTRIBUTE;
  m_obOptions.sSection = pValue;
}

void COptionParser::Manager_v() {
  if (const char* pValue = Value_p()) m_obOptions.sManager = UnicodeString(pValue);
}

namespace {

using O = CFerryOptions;
using P = COptionParser;

constexpr COption OPTIONS[] = {
    {'C', "qname", "", "Create queue", "m", &P::Operation_v<O::OP_CREATE>},
    {'f', "qname", "qname", "Copy records from stdin in", "mctlo",
     &P::Operation_v<O::OP_FILE_TO_QUEUE>},
    {'i', "configsection", "section", "Send to multiple queues based on section in ferry.ini", "",
     &P::Section_v},
    {'k', "qname", "qname", "Delete records", "mc", &P::Operation_v<O::OP_CLEAN>},
    {'p', "qname", "qname", "Peek records to stdout", "mc",
     &P::Operation_v<O::OP_QUEUE_TO_FILE, true>},
    {'r', "qname", "qname", "Read records to stdout (records are removed)", "mc",
     &P::Operation_v<O::OP_QUEUE_TO_FILE>},
    {'s', "qname", "qname", "Display status", "m", &P::Operation_v<O::OP_STATUS>},
    {'X', "qname", "qname", "Delete queue", "m", &P::Operation_v<O::OP_DELETE>},

    {'m', "manager", "manager", "Specifies non-default queue manager", nullptr, &P::Manager_v},
    {'c', "count", "count", "Limit operation to count records", nullptr, &P::Number_v<&O::nCount>},
    {'t', "pause", "pause", "Milliseconds to wait between record operations", nullptr,
     &P::Number_v<&O::nPause>},
    {'l', "priority", "priority", "Priority level of records", nullptr,
     &P::Number_v<&O::nPriority>},
    {'o', "expire", "expire", "Number of seconds before a record expires.", nullptr,
     &P::Number_v<&O::nExpire, false>},

    {'x', "qname", nullptr, nullptr, nullptr, &P::Operation_v<O::OP_DELETE>},
    {'T', nullptr, nullptr, nullptr, nullptr, &P::CreateFlag_v},
    {'d', nullptr, nullptr, nullptr, nullptr, &P::Debug_v},
    {'h', nullptr, nullptr, nullptr, nullptr, &P::Usage_v},
};

const COption* Find_p(char cLetter) {
  const auto* pFound = std::ranges::find(OPTIONS, cLetter, &COption::cLetter);
  return pFound == std::end(OPTIONS) ? nullptr : pFound;
}

constexpr char BANNER[] =
    "*******************************************************************************\n"
    "**  ferry " FERRY_VERSION "\n"
    "**  Message Queue Utility\n"
    "**  Lines of text between pipes and durable queues\n"
    "**  \n"
    "**  Licensed under the Apache License, Version 2.0. It comes without warranty\n"
    "**  of any kind.\n"
    "*******************************************************************************\n"
    "\n"
    "Usage:\n";

std::string Synopsis_s(const COption& obOperation) {
  std::string sLine = std::string(" ferry -") + obOperation.cLetter + ' ' + obOperation.pValue;
  for (const COption* pModifier : Modifiers_a(obOperation))
    sLine += std::string(" [-") + pModifier->cLetter + ' ' + pModifier->pValue + ']';
  return sLine + '\n';
}

std::string Listed_s(const COption& obOption) {
  std::string sShown = obOption.pShown;
  sShown.resize(std::string_view("priority ").size(), ' ');
  return std::string(" -") + obOption.cLetter + ' ' + sShown + obOption.pText + '\n';
}

std::string Usage_s() {
  std::string sSynopses, sOperations, sModifiers;
  for (const COption& obOption : OPTIONS) {
    if (!obOption.pText) continue;
    if (obOption.pModifiers) sSynopses += Synopsis_s(obOption);
    (obOption.pModifiers ? sOperations : sModifiers) += Listed_s(obOption);
  }
  return BANNER + sSynopses + "\nOperations:\n" + sOperations + "\nModifiers:\n" + sModifiers;
}

} // namespace

void COptionParser::Option_v(char cOption) {
  if (const COption* pOption = Find_p(cOption)) return (this->*pOption->pRead)();
  WriteNotice_v(std::string("Invalid flag [") + cOption + "]\n");
  Usage_v();
}

CFerryOptions ParseOptions(int nCount, const char* const* aArguments,
                           const std::function<void()>& obDebug) {
  return COptionParser(nCount, aArguments, obDebug).Parse_ob();
}

long ParseNumber_n(const char* pText) {
  if (*pText == '\0') return -1;
  using Limits = std::numeric_limits<int32_t>;
  return std::clamp<long>(std::strtol(pText, nullptr, 10), Limits::min(), Limits::max());
}

std::span<const COption> Options_a() { return OPTIONS; }

std::vector<const COption*> Modifiers_a(const COption& obOperation) {
  std::vector<const COption*> aModifiers;
  for (const char* p = obOperation.pModifiers; p && *p; ++p) aModifiers.push_back(Find_p(*p));
  return aModifiers;
}

void InvalidCommand() { WriteNotice_v(Usage_s()); }
