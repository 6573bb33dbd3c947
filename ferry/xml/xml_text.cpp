#include "ferry/xml/xml_text.h"

#include <unicode/utf16.h>

#include "ferry/xml/xml_errors.h"

namespace {

bool fitsXml(UChar32 c) {
  if (c < 0x20) return c == u'\t' || c == u'\n' || c == u'\r';
  return !U_IS_SURROGATE(c) && c != 0xFFFE && c != 0xFFFF;
}

} // namespace

UnicodeString xmlText(const UnicodeString& text) {
  UnicodeString result;
  for (int32_t i = 0; i < text.length();) {
    UChar32 c = text.char32At(i);
    i += U16_LENGTH(c);
    result.append(fitsXml(c) ? c : UChar32{0xFFFD});
  }
  return result;
}

const UnicodeString& wholeText(const UnicodeString& text) {
  if (text.indexOf(u'\0') >= 0)
    throw xmlError("wholeText", u"Names and expressions must not contain NUL");
  return text;
}
