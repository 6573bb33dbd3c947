#pragma once

#include "ferry/errors/error_message.h"
#include "ferry/text/unicode_string.h"

#include <exception>
#include <memory>
#include <string>
#include <vector>

class CMsg;

/// How bad an error is. Any other number is printed as "UNSPECIFIED".
enum VRK_Severity : int {
  VRK_NO_SEVERITY = -1, // an entry that leaves the severity of its exception as it is
  VRK_INFORMATION = 0,
  VRK_WARNING = 1,
  VRK_MINOR_ERROR = 2,
  VRK_MAJOR_ERROR = 3,
  VRK_CRITICAL_ERROR = 4
};

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

/// The one kind of failure that travels through the tool: thrown by value, caught by reference.
///
/// It carries a stack of entries, the first failure first. Each layer that catches it may append an
/// entry and throw it on (`throw;`). Its severity is the highest of its entries' and only rises.
/// Copies are deep. An object belongs to one thread at a time. char const* results stay valid until
/// the exception changes or ends; a null char const* argument counts as "".
class VRK_Exception : public std::exception {
public:
  /// An exception with one entry. The flag means nothing.
  VRK_Exception(const char* function, const KELErrorMessage& message, int code,
                VRK_Severity severity, bool flag);
  VRK_Exception(const VRK_Exception& other);
  VRK_Exception& operator=(const VRK_Exception& other);
  ~VRK_Exception() override;

  /// The first entry's message in the default code page; "" when the stack is empty.
  const char* what() const noexcept override;
  /// Empties the stack. The severity is critical from then on, whatever is appended.
  virtual void ResetException();

  // Each writes one message through the logger. severity (a VRK_Severity) chooses the message's log
  // severity; the word printed is always the exception's own. flag is passed on unused. A logger
  // that fails throws VRKLog_Exception.

  virtual void PrintException(int severity, bool withFunction, bool withStack, bool flag);
  virtual void PrintStack(int severity, bool withFunction, bool withStack, bool flag);
  virtual void PrintError(int severity, const char* label, const char* text, bool flag);
  virtual void AppendStackMsg(CMsg& msg, bool withFunction, bool withStack, bool flag);
  virtual void AppendErrorMsg(CMsg& msg, int severity, const UnicodeString& label,
                              const UnicodeString& text, bool flag);

  /// An exception whose one entry has nothing but a text ("0000E", "{0}").
  static VRK_Exception genericError(const char* function, const UnicodeString& text, int code,
                                    VRK_Severity severity);

  /// Append an entry and raise the severity; return the exception itself.
  VRK_Exception& AppendError(const char* function, const KELErrorMessage& message, int code,
                             VRK_Severity severity);
  VRK_Exception& appendGenericError(const char* function, const UnicodeString& text, int code,
                                    VRK_Severity severity);

  // Index 0 is the entry that the exception was created with. An index outside the stack gives
  // critical, "", 0 or an empty record.

  int Count() const { return static_cast<int>(m_aEntries.size()); }
  VRK_Severity Severity() const { return m_nSeverity; }
  VRK_Severity Severity(int index) const;
  const char* Function(int index) const;
  const char* Message(int index) const;
  int ExceptionCode(int index) const;
  KELErrorMessage getKELErrorMessage(int index) const;

  /// Sets the accumulated severity, lower or higher than it was.
  void SetSeverity(VRK_Severity severity) { m_nSeverity = severity; }

  /// The logger's severity bit for a VRK_Severity.
  static int getLoggingSeverity(int severity);

protected:
  /// An empty stack without a severity.
  VRK_Exception();

  const VRK_Exception_Entry* Entry(int index) const;
  CMsg NewMsg(int severity) const;

  std::string m_sOriginTag = "KEL"; // in front of the first entry's code
  VRK_Severity m_nSeverity = VRK_NO_SEVERITY;
  std::string m_sCategory; // the logger's category
  std::vector<std::unique_ptr<VRK_Exception_Entry>> m_aEntries;
  bool m_bFlag = false;
};

/// A message that is not in the format that it should be in.
class VRKFormat_Exception : public VRK_Exception {
public:
  VRKFormat_Exception();
  VRKFormat_Exception(const char* function, const KELErrorMessage& message, int code,
                      VRK_Severity severity);
};
