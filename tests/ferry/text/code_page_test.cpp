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

// ASCII takes another way than the rest: one other character anywhere must not get lost in it.
TEST(CodePage, BytesBecomeWhatTheLibraryMakesOfThem) {
  UnicodeString reused;
  for (const std::string other : {"", "\u0080", "\u00e9", "\U0001F600", "\xff", "\xe2\x82", "\x80"})
    for (size_t length = 0; length < 70; ++length)
      for (size_t at = 0; at <= length; ++at) {
        const std::string text = std::string(at, 'a') + other + std::string(length - at, '~');
        UCSS::dcpToUCS(reused, text);
        ASSERT_EQ(UnicodeString::fromUTF8(text), reused) << length << " " << at;
        std::string back;
        ASSERT_EQ(reused.toUTF8String(back), UCSS::ucsToDCP(reused)) << length << " " << at;
        ASSERT_EQ(back, UCSS::ucsToUTF8(reused)) << length << " " << at;
      }
}

TEST(CodePage, ALoneSurrogateIsReplacedOrReported) {
  UnicodeString s(UnicodeString(u"a").append(UChar(0xD800)));
  EXPECT_EQ("a\uFFFD", UCSS::ucsToDCP(s));
  EXPECT_EQ("U_INVALID_CHAR_FOUND", conversionError(s));
}

} // namespace
