#include "ferry/errors/sql_exception.h"

#include "ferry/logging/logger.h"
#include "ferry/logging/msg.h"
#include "ferry/text/ss.h"
#include "ferry/text/ucss.h"

namespace {

const char* orEmpty(const char* text) { return text ? text : ""; }

} // namespace

VRKSQL_Exception::VRKSQL_Exception() {
  m_sOriginTag = "SQL";
  m_sCategory = "sql";
}

VRKSQL_Exception::VRKSQL_Exception(const char* function, const KELErrorMessage& message,
                                   int originCode, const char* statement, const char* originMessage,
                                   int code, VRK_Severity severity)
    : VRK_Exception(function, message, code, severity, false), m_nOriginCode(originCode),
      m_sStatement(orEmpty(statement)), m_sOriginMessage(orEmpty(originMessage)) {
  m_sOriginTag = "SQL";
  m_sCategory = "sql";
}

void VRKSQL_Exception::ResetException() {
  VRK_Exception::ResetException();
  m_nOriginCode = 0;
  m_sStatement.clear();
  m_sOriginMessage.clear();
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

void VRKSQL_Exception::SetSQLStatement(const char* statement) { m_sStatement = orEmpty(statement); }

void VRKSQL_Exception::SetOriginMessage(const char* message) {
  m_sOriginMessage = orEmpty(message);
}

VRKSQL_Exception& VRKSQL_Exception::SetSQLError(int originCode, const char* originMessage,
                                                const char* statement) {
  SetOriginCode(originCode);
  SetOriginMessage(originMessage);
  SetSQLStatement(statement);
  return *this;
}

bool VRKSQL_Exception::isCriticalDatabaseFailure() const {
  int code = ExceptionCode(0); // 0 for an empty stack
  return code == 60 || code == 50 || code == 2 || code == 1;
}
