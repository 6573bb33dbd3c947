#include "ferry/errors/bx_exception.h"

VRKBX_Exception::VRKBX_Exception() {
  m_sOriginTag = "BX";
  m_sCategory = "bx";
}

VRKBX_Exception::VRKBX_Exception(const char* function, const KELErrorMessage& message,
                                 long reasonCode, const UnicodeString& reasonText, int code,
                                 VRK_Severity severity)
    : VRK_Exception(function, message, code, severity, false), m_nOriginCode(reasonCode),
      m_sOriginMessage(reasonText) {
  m_sOriginTag = "BX";
  m_sCategory = "bx";
}

VRKBX_Exception VRKBX_Exception::genericError(const char* source, const UnicodeString& text,
                                              long reason, const UnicodeString& reasonText,
                                              int line, VRK_Severity severity) {
  return {source, KELErrorMessage::generic(text), reason, reasonText, line, severity};
}

void VRKBX_Exception::ResetException() {
  VRK_Exception::ResetException();
  m_nOriginCode = 0;
  m_sOriginMessage.remove();
}

void VRKBX_Exception::SetOriginMessage(const char* message) {
  m_sOriginMessage = UnicodeString(message ? message : "");
}

VRKBX_Exception& VRKBX_Exception::SetBXError(long reasonCode, const UnicodeString& reasonText) {
  m_nOriginCode = reasonCode;
  m_sOriginMessage = reasonText;
  return *this;
}
