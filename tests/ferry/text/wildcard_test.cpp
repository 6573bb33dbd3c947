#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "ferry/text/ss.h"
#include "ferry/text/ucss.h"

namespace {

// The rule itself, without the cleverness.
bool matches(const char* pattern, const char* text) {
  if (!*pattern) return !*text;
  if (*pattern == '*') return matches(pattern + 1, text) || (*text && matches(pattern, text + 1));
  return *text && (*pattern == '_' || *pattern == *text) && matches(pattern + 1, text + 1);
}

std::vector<std::string> stringsUpTo(size_t length, const std::string& alphabet) {
  std::vector<std::string> all = {""};
  for (size_t i = 0; i < all.size(); ++i)
    if (all[i].size() < length)
      for (char c : alphabet) all.push_back(all[i] + c);
  return all;
}

TEST(WildMatch, EveryShortPatternAgainstEveryShortText) {
  const auto texts = stringsUpTo(5, "ab");
  for (const std::string& pattern : stringsUpTo(5, "ab*_"))
    for (const std::string& text : texts) {
      bool wild = pattern.find_first_of("*_") != std::string::npos;
      int expected = matches(pattern.c_str(), text.c_str()) ? (wild ? -1 : 1) : 0;
      ASSERT_EQ(expected, SS::WildMatch(pattern, text, false)) << pattern << " on " << text;
      ASSERT_EQ(expected, UCSS::WildMatch(pattern.c_str(), text.c_str(), false)) << pattern;
    }
}

TEST(WildMatch, CaseCountsUnlessAsked) {
  EXPECT_EQ(0, SS::WildMatch("A*", "abc", false));
  EXPECT_EQ(-1, SS::WildMatch("A*", "abc", true));
  EXPECT_EQ(1, UCSS::WildMatch(u"\u00c4b", u"\u00e4B", true));
  EXPECT_EQ(0, SS::WildMatch("a?c", "abc", false));
}

TEST(WildMatch, OneCharacterMayBeASurrogatePair) {
  EXPECT_EQ(-1, UCSS::WildMatch(u"a_c", u"a\U0001F600c", false));
  EXPECT_EQ(0, UCSS::WildMatch(u"a__c", u"a\U0001F600c", false));
}

TEST(Comparing, PartialMatches) {
  EXPECT_EQ(75.0, UCSS::strMatchPercentage(u"ABCD", u"ABXD", 75.0));
  EXPECT_EQ(0.0, UCSS::strMatchPercentage(u"ABCD", u"ABXD", 76));
  EXPECT_EQ(66.0, UCSS::strMatchPercentage(u"ABC", u"AB", 0));
  EXPECT_EQ(0.0, UCSS::strMatchPercentage(u"", u"", 0));
  const char* const yes[][2] = {{"ABCD", "BACD"}, {"ABCD", "BADC"},   {"ABCD", "DBCA"},
                                {"abcd", "ACBD"}, {"ABCDE", "EBDCA"}, {"AB", "ba"}};
  const char* const no[][2] = {{"ABCD", "abcd"}, {"ABCD", "ACBDX"}, {"ABCD", "ABCE"},
                               {"ABCD", "CBAD"}, {"A", "B"},        {"", ""},
                               {"ABCD", "DBCX"}, {"ABCA", "BBCA"}};
  for (auto [a, b] : yes) EXPECT_TRUE(UCSS::checkTransposition(a, b)) << a << " " << b;
  for (auto [a, b] : no) EXPECT_FALSE(UCSS::checkTransposition(a, b)) << a << " " << b;
}

} // namespace
