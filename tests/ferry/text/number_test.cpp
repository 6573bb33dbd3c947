#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <unicode/ustream.h>

#include "ferry/text/ucss.h"

namespace {

TEST(Numbers, AreReadUpToTheFirstOtherCharacter) {
  EXPECT_EQ(-12, UCSS::atoi(u" -12x"));
  EXPECT_EQ(5, UCSS::atoi(u"5-3"));
  EXPECT_EQ(1, UCSS::atoi(u"1 2"));
  EXPECT_EQ(0, UCSS::atoi(u"+5"));
  EXPECT_EQ(0, UCSS::atoi(u"\t5"));
  EXPECT_EQ(0, UCSS::atoi(u""));
  EXPECT_EQ(42, UCSS::atoi(u"\u0664\u0662")); // Arabic-Indic digits
}

TEST(Numbers, AMinusCountsWhileTheValueIsZero) {
  EXPECT_EQ(-5, UCSS::atoi(u"--5"));
  EXPECT_EQ(-5, UCSS::atoi(u"- 5"));
  EXPECT_EQ(-5, UCSS::atoi(u"00-5"));
  EXPECT_EQ(0U, UCSS::atoul(u"-5"));
  EXPECT_EQ(7U, UCSS::atoul(u" 7-5"));
}

TEST(Numbers, WrapAt32Bits) {
  EXPECT_EQ(INT_MIN, UCSS::atoi(u"2147483648"));
  EXPECT_EQ(INT_MIN, UCSS::atol(u"-2147483648"));
  EXPECT_EQ(1L, UCSS::atol(u"4294967297"));
  EXPECT_EQ(4294967295UL, UCSS::atoul(u"4294967295"));
  EXPECT_EQ(0UL, UCSS::atoul(u"4294967296"));
  EXPECT_EQ(LLONG_MIN, UCSS::atoll(u"-9223372036854775808"));
  EXPECT_EQ(1LL, UCSS::atoll(u"18446744073709551617"));
}

TEST(Numbers, FractionsAndExponentsAreRead) {
  EXPECT_EQ(-1500.0, UCSS::atof(u"  -1.5e3x"));
  EXPECT_EQ(0.1, UCSS::atof(u".1.2"));
  EXPECT_EQ(1.0, UCSS::atof(u"1e"));
  EXPECT_EQ(0.015, UCSS::atof(u"1.5E-2"));
  EXPECT_EQ(0.0, UCSS::atof(u"e5"));
  EXPECT_EQ(-HUGE_VAL, UCSS::atof(u"-1e999"));
  EXPECT_EQ(0.0, UCSS::atof(u"1e-999"));
  const UnicodeString zeros(400, u'0', 400);
  EXPECT_EQ(0.0, UCSS::atof(u"0." + zeros + u"1"));
  EXPECT_EQ(1e100, UCSS::atof(u"1" + zeros + u"e-300"));
}

TEST(Numbers, AreTold) {
  for (const UChar* yes : {u"", u"0", u"0123456789"}) EXPECT_TRUE(UCSS::isNumber(yes));
  for (const UChar* no : {u"-1", u"1.", u"x"}) EXPECT_FALSE(UCSS::isNumber(no));
  for (const UChar* yes : {u"1", u"-1", u"1.5", u".", u"-.", u"1.", u"-.5"})
    EXPECT_TRUE(UCSS::isDecimal(yes)) << UnicodeString(yes);
  for (const UChar* no : {u"", u"-", u"1.2.3", u"1-", u"--1", u"+1", u"1e5"})
    EXPECT_FALSE(UCSS::isDecimal(no)) << UnicodeString(no);
}

} // namespace
