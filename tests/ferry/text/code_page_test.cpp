#include <gtest/gtest.h>
#include <unicode/ustream.h>

#include "ferry/errors/exception.h"
#include "ferry/text/ucss.h"

namespace {

std::string conversionError(const UnicodeString& s) {
  try {
    return UCSS::ucsToUTF8(s);
  } catch (const VRK_Exception& error) {
    EXPECT_EQ(VRK_CRITICAL_ERROR, error.Severity());
    return error.what();
  }
}

// Lengths around the switch from the stack buffer to the heap, in characters of one to four bytes.
TEST(CodePage, TextOfAnyLengthIsConvertedWhole) {
  const std::string characters[] = {std::string(1, '\0'), "\u00e9", "\u20ac", "\U0001F600"};
  for (const std::string& character : characters)
    for (int count : {0, 1, 1365, 1366, 2730, 2731, 200000}) {
      std::string narrow;
      for (int i = 0; i < count; ++i) narrow += character;
      UnicodeString wide = UnicodeString::fromUTF8(narrow);
      EXPECT_EQ(narrow, UCSS::ucsToUTF8(wide)) << character << " x " << count;
      EXPECT_EQ(narrow, UCSS::ucsToDCP(wide)) << character << " x " << count;
      EXPECT_EQ(narrow, UCSS::ucToString(wide)) << character << " x " << count;
    }
}

TEST(CodePage, ALoneSurrogateIsReplacedOrReported) {
  UnicodeString s(UnicodeString(u"a").append(UChar(0xD800)));
  EXPECT_EQ("a\uFFFD", UCSS::ucsToDCP(s));
  EXPECT_EQ("U_INVALID_CHAR_FOUND", conversionError(s));
}

} // namespace
