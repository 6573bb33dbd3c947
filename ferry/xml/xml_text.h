#pragma once

#include "ferry/text/unicode_string.h"

/// The text as XML 1.0 can hold it: each character that it has no way to write (control characters
/// but tab, line feed and carriage return; NUL; lone surrogates; U+FFFE and U+FFFF) becomes the
/// replacement character U+FFFD, so that a reader sees that something stood there.
UnicodeString xmlText(const UnicodeString& text);

/// The text as it is; the XML libraries judge it. Throws VRK_Exception when it holds a NUL, at
/// which they would cut it.
const UnicodeString& wholeText(const UnicodeString& text);
