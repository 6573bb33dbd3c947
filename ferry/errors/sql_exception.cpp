#include "ferry/errors/sql_exception.h"

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
