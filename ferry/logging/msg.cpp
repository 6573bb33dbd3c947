#include "ferry/logging/msg.h"

CMsg::CMsg(const UnicodeString& sCategory, unsigned nSeverity)
    : m_nSeverity(nSeverity), m_sCategory(sCategory) {}

void CMsg::Set_v(const UnicodeString& sCategory, unsigned nSeverity) {
  m_sCategory = sCategory;
  m_nSeverity = nSeverity;
  m_obLines.clear();
}

CMsg& CMsg::AddLine_rob(const UChar* pFormat, ...) {
  va_list args;
  va_start(args, pFormat);
  VAddLine_rob(pFormat, args);
  va_end(args);
  return *this;
}

CMsg& CMsg::VAddLine_rob(const UChar* pFormat, va_list args) {
  UCSS::vssprintf(m_obLines.emplace_back(), pFormat, args);
  return *this;
}
