#pragma once

#include "ferry/errors/exception.h"

/// A failed queue manager call: adds the reason code (0: none) and its text.
class VRKBX_Exception : public VRK_Exception {
public:
  VRKBX_Exception();
  VRKBX_Exception(const char* function, const KELErrorMessage& message, long reasonCode,
                  const UnicodeString& reasonText, int code, VRK_Severity severity);

  /// An exception whose one entry has nothing but a text ("0000E", "{0}"); line is its code.
  static VRKBX_Exception genericError(const char* source, const UnicodeString& text, long reason,
                                      const UnicodeString& reasonText, int line,
                                      VRK_Severity severity);

  /// Takes the reason code and its text away too.
  void ResetException() override;
  /// Begins with the reason code and its text, also where the stack follows.
  void PrintException(int severity, bool withFunction, bool withStack, bool flag) override;

  long OriginCode() const { return m_nOriginCode; }
  void SetOriginCode(int code) { m_nOriginCode = code; }
  const UnicodeString& OriginMessage() const { return m_sOriginMessage; }
  void SetOriginMessage(const char* message);
  /// Sets both; the entries and the severity stay. Returns the exception itself.
  VRKBX_Exception& SetBXError(long reasonCode, const UnicodeString& reasonText);

private:
  long m_nOriginCode = 0;
  UnicodeString m_sOriginMessage;
};
