#include "ferry/errors/format_exception.h"

VRKFormat_Exception::VRKFormat_Exception() { m_sCategory = "pipeline"; }

VRKFormat_Exception::VRKFormat_Exception(const char* function, const KELErrorMessage& message,
                                         int code, VRK_Severity severity)
    : VRK_Exception(function, message, code, severity, false) {
  m_sCategory = "pipeline";
}
