#pragma once

#include <string>
#include <vector>

#include "ferry/errors/severity.h"
#include "ferry/text/unicode_string.h"

class KELErrorMessage;

/// One element of an exception's error stack.
class VRK_Exception_Entry {
public:
  VRK_Exception_Entry(const char* function, const KELErrorMessage& message, int code,
                      VRK_Severity severity);
  virtual ~VRK_Exception_Entry() = default;
  VRK_Exception_Entry(const VRK_Exception_Entry&) = default;
  VRK_Exception_Entry& operator=(const VRK_Exception_Entry&) = default;

  std::string m_sFunction;
  UnicodeString m_sMessage;
  std::string m_sNarrowMessage; // m_sMessage in the default code page
  int m_nCode;                  // 0: none
  VRK_Severity m_nSeverity;
  UnicodeString m_sId;
  UnicodeString m_sTemplate;
  UnicodeString m_sText;
  std::vector<UnicodeString> m_aParameters;
};
