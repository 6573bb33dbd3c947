#include "ferry/errors/exception.h"

#include "ferry/text/ucss.h"

#include <algorithm>

VRK_Exception_Entry::VRK_Exception_Entry(const char* function, const KELErrorMessage& message,
                                         int code, VRK_Severity severity)
    : m_sFunction(function ? function : ""), m_sMessage(message.getText()),
      m_sNarrowMessage(UCSS::ucsToDCP(message.getText())), m_nCode(code), m_nSeverity(severity),
      m_sId(message.getId()), m_sTemplate(message.getTemplate()), m_sText(message.getText()),
      m_aParameters(message.getParameters()) {}

VRK_Exception::VRK_Exception() = default;

VRK_Exception::VRK_Exception(const char* function, const KELErrorMessage& message, int code,
                             VRK_Severity severity, bool flag)
    : m_nSeverity(severity), m_bFlag(flag) {
  AppendError(function, message, code, severity);
}

VRK_Exception::VRK_Exception(const VRK_Exception& other)
    : std::exception(other), m_sOriginTag(other.m_sOriginTag), m_nSeverity(other.m_nSeverity),
      m_sCategory(other.m_sCategory), m_bFlag(other.m_bFlag) {
  m_aEntries.reserve(other.m_aEntries.size());
  for (const auto& entry : other.m_aEntries)
    m_aEntries.push_back(std::make_unique<VRK_Exception_Entry>(*entry));
}

VRK_Exception& VRK_Exception::operator=(const VRK_Exception& other) {
  VRK_Exception copy(other);
  m_sOriginTag.swap(copy.m_sOriginTag);
  m_nSeverity = copy.m_nSeverity;
  m_sCategory.swap(copy.m_sCategory);
  m_aEntries.swap(copy.m_aEntries);
  m_bFlag = copy.m_bFlag;
  return *this;
}

VRK_Exception::~VRK_Exception() = default;

const char* VRK_Exception::what() const noexcept { return Message(0); }

void VRK_Exception::ResetException() {
  m_aEntries.clear();
  m_nSeverity = VRK_CRITICAL_ERROR;
}

VRK_Exception VRK_Exception::genericError(const char* function, const UnicodeString& text, int code,
                                          VRK_Severity severity) {
  return {function, KELErrorMessage::generic(text), code, severity, false};
}

VRK_Exception& VRK_Exception::AppendError(const char* function, const KELErrorMessage& message,
                                          int code, VRK_Severity severity) {
  m_aEntries.push_back(std::make_unique<VRK_Exception_Entry>(function, message, code, severity));
  m_nSeverity = m_nSeverity == VRK_NO_SEVERITY ? severity : std::max(m_nSeverity, severity);
  return *this;
}

VRK_Exception& VRK_Exception::appendGenericError(const char* function, const UnicodeString& text,
                                                 int code, VRK_Severity severity) {
  return AppendError(function, KELErrorMessage::generic(text), code, severity);
}

const VRK_Exception_Entry* VRK_Exception::Entry(int index) const {
  return index >= 0 && index < Count() ? m_aEntries[static_cast<size_t>(index)].get() : nullptr;
}

VRK_Severity VRK_Exception::Severity(int index) const {
  const VRK_Exception_Entry* entry = Entry(index);
  return entry ? entry->m_nSeverity : VRK_CRITICAL_ERROR;
}

const char* VRK_Exception::Function(int index) const {
  const VRK_Exception_Entry* entry = Entry(index);
  return entry ? entry->m_sFunction.c_str() : "";
}

const char* VRK_Exception::Message(int index) const {
  const VRK_Exception_Entry* entry = Entry(index);
  return entry ? entry->m_sNarrowMessage.c_str() : "";
}

int VRK_Exception::ExceptionCode(int index) const {
  const VRK_Exception_Entry* entry = Entry(index);
  return entry ? entry->m_nCode : 0;
}

KELErrorMessage VRK_Exception::getKELErrorMessage(int index) const {
  const VRK_Exception_Entry* entry = Entry(index);
  if (!entry) return {};
  return {entry->m_sId, entry->m_sTemplate, entry->m_sText, entry->m_aParameters};
}

VRKFormat_Exception::VRKFormat_Exception() { m_sCategory = "pipeline"; }

VRKFormat_Exception::VRKFormat_Exception(const char* function, const KELErrorMessage& message,
                                         int code, VRK_Severity severity)
    : VRK_Exception(function, message, code, severity, false) {
  m_sCategory = "pipeline";
}
