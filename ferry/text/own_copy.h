#pragma once

#include "ferry/text/ucss.h"

/// A copy with text of its own. A plain copy shares its text with the original until
/// one of them changes; strings that stay with several threads take no part in that.
inline UnicodeString OwnCopy_s(const UnicodeString& s) {
  return UnicodeString(s.getBuffer(), s.length());
}
