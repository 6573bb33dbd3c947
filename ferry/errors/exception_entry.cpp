#include "ferry/errors/exception_entry.h"

#include "ferry/errors/error_message.h"
#include "ferry/text/ucss.h"

VRK_Exception_Entry::VRK_Exception_Entry(const char* function, const KELErrorMessage& message,
                                         int code, VRK_Severity severity)
    : m_sFunction(function ? function : ""), m_sMessage(message.getText()),
      m_sNarrowMessage(UCSS::ucsToDCP(message.getText())), m_nCode(code), m_nSeverity(severity),
      m_sId(message.getId()), m_sTemplate(message.getTemplate()), m_sText(message.getText()),
      m_aParameters(message.getParameters()) {}
