#pragma once

#include "ferry/errors/exception.h"

/// A failed database call: adds the database's code and text and the statement.
class VRKSQL_Exception : public VRK_Exception {
public:
  VRKSQL_Exception();
  VRKSQL_Exception(const char* function, const KELErrorMessage& message, int originCode,
                   const char* statement, const char* originMessage, int code,
                   VRK_Severity severity);

  void ResetException() override;
  void PrintException(int severity, bool withFunction, bool withStack, bool flag) override;

  int OriginCode() const { return m_nOriginCode; }
  void SetOriginCode(int code) { m_nOriginCode = code; }
  const char* SQLStatement() const { return m_sStatement.c_str(); }
  void SetSQLStatement(const char* statement);
  const char* OriginMessage() const { return m_sOriginMessage.c_str(); }
  void SetOriginMessage(const char* message);
  VRKSQL_Exception& SetSQLError(int originCode, const char* originMessage, const char* statement);

  /// Whether the first entry's code is one after which the database cannot be worked with.
  bool isCriticalDatabaseFailure() const;

private:
  int m_nOriginCode = 0;
  std::string m_sStatement;
  std::string m_sOriginMessage;
};
