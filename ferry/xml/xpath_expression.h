#pragma once

#include "ferry/text/unicode_string.h"

/// The expression in a form that the XML libraries can be trusted with. Throws VRK_Exception when
/// it exceeds a limit of xml_limits.h or holds a NUL; whether it is an expression at all is left to
/// them.
UnicodeString safeExpression(const UnicodeString& xpath);
