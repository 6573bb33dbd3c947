#pragma once

#include <unicode/unistr.h>

/// All text inside the tool: keys, names, messages, records. UTF-16.
using icu::UnicodeString;

// Shared constant strings, aliases of literals: they own no memory and are safe to read from any
// thread.
inline const UnicodeString UCS_AMPERSAND(true, u"&", 1);
inline const UnicodeString UCS_DBL_QUOTE(true, u"\"", 1);
inline const UnicodeString UCS_SNG_QUOTE(true, u"'", 1);
inline const UnicodeString UCS_LESS_THAN(true, u"<", 1);
inline const UnicodeString UCS_GREATER_THAN(true, u">", 1);
inline const UnicodeString UCS_NULL_STR(true, u"", 0);

/// A copy with text of its own. A plain copy shares its text with the original until one of them
/// changes; strings that stay with several threads take no part in that.
inline UnicodeString OwnCopy_s(const UnicodeString& s) {
  return UnicodeString(s.getBuffer(), s.length());
}
