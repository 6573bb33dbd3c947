// What exceptions print; they carry no more than what they say, and know of no logger.

#include "ferry/errors/bx_exception.h"
#include "ferry/errors/sql_exception.h"
#include "ferry/logging/logger.h"
#include "ferry/logging/msg.h"
#include "ferry/text/ss.h"
#include "ferry/text/ucss.h"

namespace {

struct SeverityForm {
  const char* word;
  unsigned logSeverity;
};

// Minor and major errors share the logger's error class on purpose.
SeverityForm formOf(int severity) {
  switch (severity) {
  case VRK_INFORMATION: return {"INFORMATION", CSeverity::INFO};
  case VRK_WARNING: return {"WARNING", CSeverity::WARN};
  case VRK_MINOR_ERROR: return {"MINOR ERROR", CSeverity::ERR};
  case VRK_MAJOR_ERROR: return {"MAJOR ERROR", CSeverity::ERR};
  case VRK_CRITICAL_ERROR: return {"CRITICAL ERROR", CSeverity::CRIT};
  default: return {"UNSPECIFIED", CSeverity::DBUG};
  }
}

// "[KEL-00042]: ", or "[00042]: " without an origin.
std::string codeLabel(const std::string& origin, int code) {
  std::string digits;
  SS::ZFill(digits, code, 5);
  return "[" + (origin.empty() ? digits : origin + "-" + digits) + "]: ";
}

} // namespace

int VRK_Exception::getLoggingSeverity(int severity) {
  return static_cast<int>(formOf(severity).logSeverity);
}

CMsg VRK_Exception::NewMsg(int severity) const {
  return {UnicodeString(m_sCategory.c_str()), formOf(severity).logSeverity};
}

void VRK_Exception::PrintException(int severity, bool withFunction, bool withStack, bool flag) {
  CMsg msg = NewMsg(severity);
  if (withStack) {
    AppendErrorMsg(msg, severity, UCS_NULL_STR, UCS_NULL_STR, flag);
    AppendStackMsg(msg, withFunction, withStack, flag);
  } else {
    std::string label = ExceptionCode(0) ? codeLabel(m_sOriginTag, ExceptionCode(0)) : "";
    const VRK_Exception_Entry* first = Entry(0);
    AppendErrorMsg(msg, severity, UnicodeString(label.c_str()),
                   first ? first->m_sMessage : UCS_NULL_STR, flag);
  }
  CLogger::Log_v(msg);
}

void VRK_Exception::PrintStack(int severity, bool withFunction, bool withStack, bool flag) {
  CMsg msg = NewMsg(severity);
  AppendStackMsg(msg, withFunction, withStack, flag);
  CLogger::Log_v(msg);
}

void VRK_Exception::PrintError(int severity, const char* label, const char* text, bool flag) {
  CMsg msg = NewMsg(severity);
  AppendErrorMsg(msg, severity, UnicodeString(label ? label : ""), UnicodeString(text ? text : ""),
                 flag);
  CLogger::Log_v(msg);
}

void VRK_Exception::AppendErrorMsg(CMsg& msg, int, const UnicodeString& label,
                                   const UnicodeString& text, bool) {
  msg.AddLine_rob(u"%s%S: %S", formOf(Severity()).word, UCSS::getConstUnicodeStringContent(label),
                  UCSS::getConstUnicodeStringContent(text));
}

void VRK_Exception::AppendStackMsg(CMsg& msg, bool withFunction, bool, bool) {
  if (m_aEntries.empty()) return;
  msg.AddLine_rob(u"{");
  for (int i = 0; i < Count(); ++i) {
    const VRK_Exception_Entry& entry = *Entry(i);
    std::string function = withFunction ? entry.m_sFunction + " " : "";
    // Only the first entry is the origin's own.
    std::string code = entry.m_nCode ? codeLabel(i == 0 ? m_sOriginTag : "", entry.m_nCode) : "";
    msg.AddLine_rob(u"  %s%s%S", function.c_str(), code.c_str(),
                    UCSS::getConstUnicodeStringContent(entry.m_sMessage));
  }
  msg.AddLine_rob(u"}");
}

void VRKBX_Exception::PrintException(int severity, bool withFunction, bool withStack, bool flag) {
  CMsg msg = NewMsg(severity);
  UnicodeString label;
  UCSS::ssprintf(label, u"[%s-%ld]", m_sOriginTag.c_str(), m_nOriginCode);
  AppendErrorMsg(msg, severity, label, m_sOriginMessage, flag);
  if (withStack) AppendStackMsg(msg, withFunction, withStack, flag);
  CLogger::Log_v(msg);
}

void VRKSQL_Exception::PrintException(int severity, bool withFunction, bool withStack, bool flag) {
  std::string code;
  SS::ZFill(code, ExceptionCode(0), 5);
  std::string label = "[" + m_sOriginTag + "-" + code + "]";

  CMsg msg = NewMsg(severity);
  AppendErrorMsg(msg, severity, UnicodeString(label.c_str()),
                 UnicodeString(m_sOriginMessage.c_str()), flag);
  if (!m_sStatement.empty())
    msg.AddLine_rob(u"SQL Statement%s: %s", label.c_str(), m_sStatement.c_str());
  if (withStack) AppendStackMsg(msg, withFunction, withStack, flag);
  CLogger::Log_v(msg);
}
