#pragma once

#include "ferry/text/unicode_string.h"

// Shared constant strings, aliases of literals: they own no memory and are safe to read from any
// thread.
inline const UnicodeString UCS_AMPERSAND(true, u"&", 1);
inline const UnicodeString UCS_DBL_QUOTE(true, u"\"", 1);
inline const UnicodeString UCS_SNG_QUOTE(true, u"'", 1);
inline const UnicodeString UCS_LESS_THAN(true, u"<", 1);
inline const UnicodeString UCS_GREATER_THAN(true, u">", 1);
inline const UnicodeString UCS_NULL_STR(true, u"", 0);
