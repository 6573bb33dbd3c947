#include <gtest/gtest.h>

#include "ferry/text/ss.h"

namespace {

template <class Edit, class... Args>
std::string edited(int result, std::string s, Edit edit, const Args&... args) {
  EXPECT_EQ(result, edit(s, args...));
  return s;
}

TEST(NarrowEdit, LineEndsAreTrimmedOnTheRightOnly) {
  EXPECT_EQ("ab", edited(3, "ab \r\n", SS::RTrim));
  EXPECT_EQ("\n ab", edited(0, "\n ab", SS::LTrim));
  EXPECT_EQ("ab", edited(2, "\t ab", SS::LTrim));
  EXPECT_EQ("\nab", edited(3, " \nab\n\n", SS::Trim));
  EXPECT_EQ("", edited(3, " \t ", SS::Trim));
}

TEST(NarrowEdit, BytesAreRemovedReplacedAndCounted) {
  EXPECT_EQ("ab", edited(2, "-a-b", SS::Remove, '-'));
  // These two count positions, not changes.
  EXPECT_EQ("12", edited(4, "a1b2", SS::RemoveNonNumeric, ""));
  EXPECT_EQ("-1-2", edited(4, "a1b2", SS::RemoveNonNumeric, "-"));
  EXPECT_EQ("a<>1<><>", edited(5, "a 1\xC3\xA9", SS::RemoveNonAlphaNumeric, "<>"));
}

TEST(NarrowEdit, ReplacedTextIsNotSearchedAgain) {
  EXPECT_EQ("aabaab", edited(2, "abab", SS::Replace, "a", "aa"));
  EXPECT_EQ("ba", edited(1, "aaa", SS::Replace, "aa", "b"));
  EXPECT_EQ("ab", edited(0, "ab", SS::Replace, "", "x"));
  EXPECT_EQ("", edited(2, "abab", SS::Replace, "ab", ""));
}

TEST(NarrowEdit, CasesChangeByWord) {
  EXPECT_EQ("Ab  Cd\tef", edited(false, "aB  cD\tEF", SS::ProperCase));
  EXPECT_EQ("A ", edited(true, "a ", SS::ProperCase));
  EXPECT_EQ("", edited(false, "", SS::ProperCase));
}

TEST(NarrowEdit, TokensAreNeverEmpty) {
  std::vector<std::string> tokens = {"old"};
  EXPECT_EQ(3, SS::Tokenize(",a,,b,", tokens, ",", true));
  EXPECT_EQ((std::vector<std::string>{"old", "a", "b"}), tokens);
  EXPECT_EQ(1, SS::Tokenize("a;b", tokens, std::string(",\0;", 3), false));
  tokens = {"a rather long first token, b", ","};
  EXPECT_EQ(2, SS::Tokenize(tokens[0], tokens, tokens[1], false));
  EXPECT_EQ("a rather long first token", tokens[0]);
}

} // namespace
