#include <gtest/gtest.h>
#include <stdexcept>
#include <unicode/ustream.h>

#include "ferry/text/uc_string.h"
#include "ferry/text/ucss.h"

namespace {

template <class Edit, class... Args>
UnicodeString edited(UnicodeString s, Edit edit, const Args&... args) {
  edit(s, args...);
  return s;
}

TEST(UnicodeEdit, WhiteSpaceIsTrimmedAtItsOwnEnd) {
  EXPECT_EQ(u"a b\t", edited(u"\t\n\f\r a b\t", UCSS::LTrim, 0));
  EXPECT_EQ(u"ab c", edited(u"ab  c", UCSS::LTrim, 3));
  EXPECT_EQ(u" a", edited(u" a \r\n\t\f", UCSS::RTrim));
  EXPECT_EQ(u"ax", edited(u"xxax", UCSS::LStrip, u'x'));
  EXPECT_EQ(u"", edited(u"xx", UCSS::RStrip, u'x'));
  EXPECT_EQ(u"", edited(u" \n", UCSS::RTrim));
  EXPECT_EQ(u"\u00a0a\v", edited(edited(u"\u00a0a\v", UCSS::RTrim), UCSS::LTrim, 0));
  for (int32_t outside : {-1, 2, 9}) EXPECT_EQ(u" a", edited(u" a", UCSS::LTrim, outside));
}

TEST(UnicodeEdit, CharactersAreRemovedAndCounted) {
  UnicodeString s(u"\ra\rb\r");
  EXPECT_EQ(3, UCSS::Remove(s, 13));
  EXPECT_EQ(u"ab", s);
  EXPECT_EQ(0, UCSS::Remove(s, 13));
  UnicodeString copy(s = UnicodeString(100000, u'x', 100000));
  EXPECT_EQ(100000, UCSS::Remove(s, u'x'));
  EXPECT_TRUE(s.isEmpty());
  EXPECT_EQ(100000, copy.length());
}

TEST(UnicodeEdit, OtherCharactersAreErasedOrReplaced) {
  UnicodeString s(u"a-1\U0001F600\u00e9");
  EXPECT_EQ(2, UCSS::RemoveNonAlphaNumeric(s, u"<>"));
  EXPECT_EQ(u"a<>1<>\u00e9", s);
  EXPECT_EQ(2, UCSS::RemoveNonAlphaNumericWithPreserveChars(s, u"", u"<"));
  EXPECT_EQ(u"a<1<\u00e9", s);
  EXPECT_EQ(4, UCSS::RemoveNonNumeric(s, u""));
  EXPECT_EQ(u"1", s);
}

TEST(UnicodeEdit, CasesChangeByWordOrWhole) {
  EXPECT_EQ(u"Hello Big World's \u01c5x 1st",
            edited(u"hELLO big wORLD'S \u01c6x 1ST", UCSS::toProperCase));
  UCString s(" caf\u00e9 bar \r\n", 10);
  EXPECT_EQ(u" CAF\u00c9 BAR", s.toUpper());
  EXPECT_EQ(u" CAF\u00c9BAR", s.lTrim(5));
  EXPECT_EQ(u"CAF\u00c9BAR", s.trim());
  EXPECT_EQ(u"x", (s = UnicodeString(u"x \t")).rTrim());
  try {
    s.lTrim(-1);
    FAIL();
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ("Negative index provided for lTrim operation", error.what());
  }
}

TEST(UnicodeSearch, CharactersOfASetAreFound) {
  UnicodeString s(u"ab\U0001F600ba");
  EXPECT_EQ(1, UCSS::findFirstOf(s, u"b"));
  EXPECT_EQ(4, UCSS::findFirstOf(s, u"b", 2));
  EXPECT_EQ(4, UCSS::findFirstOf(s, u"b", 3)) << "from within the pair";
  EXPECT_EQ(2, UCSS::findFirstNotOf(s, u"ab"));
  EXPECT_EQ(5, UCSS::findLastOf(s, u"a"));
  EXPECT_EQ(2, UCSS::findLastNotOf(s, u"ab", 5));
  EXPECT_EQ(1, UCSS::findLastNotOf(s, u"a\U0001F600", 3));
  // Another character with the same lead surrogate is another character.
  EXPECT_EQ(-1, UCSS::findFirstOf(s, u"\U0001F601"));
  EXPECT_EQ(-1, UCSS::findLastOf(s, u"\U0001F601"));
  for (int32_t outside : {-1, 6}) {
    EXPECT_EQ(-1, UCSS::findFirstOf(s, u"a", outside));
    EXPECT_EQ(-1, UCSS::findFirstNotOf(s, u"x", outside));
    EXPECT_EQ(-1, UCSS::findLastNotOf(s, u"x", outside));
  }
  EXPECT_EQ(-1, UCSS::findLastOf(u"", u"a"));
}

TEST(UnicodeSearch, TokensAreNeverEmpty) {
  std::vector<UnicodeString> tokens = {u"old"};
  EXPECT_EQ(3, UCSS::Tokenize(u";a,b,;c,", tokens, u",;", false));
  EXPECT_EQ((std::vector<UnicodeString>{u"a", u"b", u"c"}), tokens);
  EXPECT_EQ(4, UCSS::Tokenize(u"d", tokens, u",", true));
  EXPECT_EQ(u"d", tokens[3]);
  EXPECT_EQ(1, UCSS::Tokenize(tokens[0], tokens, tokens[1]));
}

} // namespace
