#pragma once

#include "ferry/text/ucss.h"

#include <cstdarg>
#include <cstdint>
#include <vector>

/// Severity bits that every logger knows, with the names its filters use. The gap before USER is
/// left for the system's own severities.
struct CSeverity {
  static constexpr unsigned CRIT = 0x1;
  static constexpr unsigned ERR = 0x2;
  static constexpr unsigned WARN = 0x4;
  static constexpr unsigned NOTE = 0x8;
  static constexpr unsigned INFO = 0x10;
  static constexpr unsigned PERF = 0x20;
  static constexpr unsigned DBUG = 0x40;
  static constexpr unsigned USER = 0x10000;
};

/// One log message: lines under one severity, category and time.
///
/// A message belongs to the thread that builds and logs it. Lines are formatted with the
/// printf-like formatter of UCSS: %S takes a zero-terminated `const UChar*`
/// (UnicodeString::getTerminatedBuffer()), %s a `const char*`.
class CMsg {
public:
  CMsg() = default;
  CMsg(const UnicodeString& sCategory, unsigned nSeverity);

  /// Sets category and severity and removes the lines.
  void Set_v(const UnicodeString& sCategory, unsigned nSeverity);

  /// Formats one line, which writers print as an output line of its own, and appends it. Returns
  /// the message, so that calls can be chained.
  CMsg& AddLine_rob(const UChar* pFormat, ...);
  CMsg& VAddLine_rob(const UChar* pFormat, va_list args);

  /// Milliseconds since 1970 in UTC; 0 means none. A logger that needs the time of a message
  /// without one fills in the current time.
  void SetTime_v(int64_t nTime) const { m_nTime = nTime; }
  int64_t Time_n() const { return m_nTime; }

  const std::vector<UnicodeString>& Lines_rob() const { return m_obLines; }
  const UnicodeString& Category_rob() const { return m_sCategory; }
  unsigned Severity_n() const { return m_nSeverity; }

private:
  std::vector<UnicodeString> m_obLines;
  unsigned m_nSeverity = 0;
  UnicodeString m_sCategory;
  mutable int64_t m_nTime = 0;
};
