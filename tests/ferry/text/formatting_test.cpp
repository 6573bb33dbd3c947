#include <climits>
#include <gtest/gtest.h>
#include <unicode/ustdio.h>
#include <unicode/ustream.h>

#include "ferry/text/ss.h"
#include "ferry/text/ucss.h"

namespace {

template <class... Args>
UnicodeString formatted(const UChar* format, Args... args) {
  UnicodeString out;
  int32_t length = UCSS::ssprintf(out, format, args...);
  EXPECT_EQ(out.length(), length);
  return out;
}

template <class... Args>
UnicodeString byIcu(const UChar* format, Args... args) {
  UChar buffer[200];
  u_snprintf_u(buffer, 200, format, args...);
  return buffer;
}

// Formats without width or flags take a way of their own; it must not be seen.
TEST(Formatting, AgreesWithIcuWithAndWithoutWidths) {
  const UChar* wide = u"\u00e9\U0001F600";
  const char* narrow = "\u00e9";
  for (const UChar* format : {u"%S %s %d %u %ld!", u"100%% %S|%s|%d|%u|%lu", u"%3S%s%05d%u%ld"})
    EXPECT_EQ(byIcu(format, wide, narrow, -42, 4000000000U, 7L),
              formatted(format, wide, narrow, -42, 4000000000U, 7L));
  EXPECT_EQ(byIcu(u"%S%s", nullptr, nullptr), formatted(u"%S%s", nullptr, nullptr));
  EXPECT_EQ(u"", formatted(u""));
  EXPECT_EQ(u"%% 7%", formatted(u"%%%% %d%", 7));
  EXPECT_EQ(u"    7%-3.l", formatted(u"%5d%-3.l", 7));
  EXPECT_EQ(u"0007%(003", formatted(u"%(0030)4d%(003", 7));
}

TEST(Formatting, IntegersAre32BitsUnlessLongLong) {
  EXPECT_EQ(u"7 7", formatted(u"%ld %lu", (1L << 33) + 7, (1UL << 33) + 7));
  EXPECT_EQ(u"-2147483648 4294967295", formatted(u"%ld %lu", long{INT_MIN}, -1L));
  EXPECT_EQ(u"-9223372036854775808 18446744073709551615",
            formatted(u"%lld %llu", LLONG_MIN, ULLONG_MAX));
  EXPECT_EQ(u"18446744073709551615", UCSS::toString(ULLONG_MAX));
  EXPECT_EQ(u"-9223372036854775808", UCSS::toString(LLONG_MIN));
  EXPECT_EQ(u"-32768", UCSS::toString(static_cast<short>(-32768)));
}

TEST(Formatting, ResultsOfAnyLengthAreWhole) {
  for (int length : {1023, 1024, 1025, 2049, 100000}) {
    UnicodeString text(length, u'x', length);
    const UChar* units = text.getTerminatedBuffer();
    EXPECT_EQ(text, formatted(u"%S", units));
    EXPECT_EQ(text + u"    7", formatted(u"%S%5d", units, 7)) << length;
  }
  for (size_t length = 0; length < 200; ++length) {
    const std::string narrow(length, 'x');
    std::string out;
    EXPECT_EQ(length, SS::ssprintf(out, "%s", narrow.c_str()));
    EXPECT_EQ(narrow, out);
  }
}

TEST(Formatting, ArgumentsMayPointIntoTheResult) {
  UnicodeString wide(u"again");
  UCSS::ssprintf(wide, u"%S and %S", wide.getTerminatedBuffer(), wide.getTerminatedBuffer());
  EXPECT_EQ(u"again and again", wide);
  UCSS::ssprintf(wide, "%5d%%", 7);
  EXPECT_EQ(u"    7%", wide);

  std::string narrow = "again";
  SS::ssprintf(narrow, "%s and %s", narrow.c_str(), narrow.c_str());
  EXPECT_EQ("again and again", narrow);
}

TEST(Formatting, TextIsFilledToItsWidth) {
  std::string out = "ab";
  SS::CharFill(out, out, '.', 5, true);
  EXPECT_EQ("ab...", out);
  SS::ZFill(out, 1234, 2);
  EXPECT_EQ("1234", out);
  SS::ZFill(out, -5, 4);
  EXPECT_EQ("00-5", out);
  SS::CharFill(out, "ab", '.', INT_MIN, false);
  EXPECT_EQ("ab", out);
}

TEST(Formatting, MarkupCharactersBecomeEntities) {
  EXPECT_EQ(u"a&lt;b&amp;c&gt;&quot;&apos;&amp;amp;", UCSS::encode4XML(u"a<b&c>\"'&amp;"));
  EXPECT_EQ("a&lt;b&amp;c&gt;&quot;&apos;&amp;amp;", SS::encode4XML("a<b&c>\"'&amp;"));
}

TEST(Formatting, WhatCannotBeFormattedSaysSo) {
  std::string out;
  const wchar_t invalid[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
  EXPECT_EQ(39, SS::ssprintf(out, "%ls", invalid));
  EXPECT_EQ("ERROR: SS::vssprintf cannot format: %ls", out);
}

TEST(Formatting, BoundedCopiesEndInTime) {
  char buffer[] = "######";
  EXPECT_STREQ("abc", SS::strncpy(buffer, "abcdef", 4));
  EXPECT_EQ('#', buffer[4]);
  std::string out = "abcdef";
  SS::sstrncpy(out, out.c_str() + 1, 3);
  EXPECT_EQ("bcd", out);
}

} // namespace
