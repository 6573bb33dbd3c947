#include "ferry/logging/uriuc.h"

#include <gtest/gtest.h>

namespace {

std::string utf8(const UnicodeString& s) {
  std::string out;
  return s.toUTF8String(out);
}

/// "scheme|user|password|host|port|path", each parameter after a "?".
std::string parse(const UnicodeString& text, std::initializer_list<const UChar*> names = {}) {
  const URIUC uri(text);
  std::string out = utf8(uri.Scheme_rob() + u"|" + uri.User_rob() + u"|" + uri.Password_rob() +
                         u"|" + uri.Host_rob() + u"|" + uri.Port_rob() + u"|" + uri.Path_rob());
  for (const UChar* name : names) {
    const UnicodeString* value = uri.FindQuery_pob(name);
    out += value ? "?" + utf8(*value) : "?(none)";
  }
  return out;
}

TEST(Address, PlainParts) {
  EXPECT_EQ(parse(u""), "|||||/");
  EXPECT_EQ(parse(u"console://stdout"), "console|||stdout||/");
  EXPECT_EQ(parse(u"x://h:8080/p"), "x|||h|8080|/p");
  EXPECT_EQ(parse(u"x:/a/b"), "x|||||/a/b");
}

TEST(Address, UserAndPassword) {
  EXPECT_EQ(parse(u"x://joe:pw@h:1/p"), "x|joe|pw|h|1|/p");
  EXPECT_EQ(parse(u"x://joe@h/p"), "x||joe|h||/p");
  EXPECT_EQ(parse(u"x://h:1/p@q"), "x|||h|1|/p@q");
}

TEST(Address, Query) {
  EXPECT_EQ(parse(u"x://h/p?a=1&b=2;c=3", {u"a", u"b", u"c", u"d"}), "x|||h||/p?1?2?3?(none)");
  EXPECT_EQ(parse(u"x://h/?a=1&a=2", {u"a"}), "x|||h||/?2");
  EXPECT_EQ(parse(u"x://h/?a&b=2", {u"a", u"a&b"}), "x|||h||/?(none)?2");
  EXPECT_EQ(parse(u"x://h/?a=x=y;b", {u"a", u"b"}), "x|||h||/?x=y?");
  EXPECT_EQ(parse(u"x://h?a=1", {u"a"}), "x|||h?a=1||/?(none)");
}

TEST(Address, PercentEscapes) {
  EXPECT_EQ(parse(u"x://h/a%20b"), "x|||h||/a b");
  EXPECT_EQ(parse(u"x://h/a%zz"), "x|||h||/a%zz");
  EXPECT_EQ(parse(u"x://h/%"), "x|||h||/%");
  EXPECT_EQ(parse(u"x://a%2Fb/?%61=%3d", {u"a"}), "x|||a/b||/?=");
  EXPECT_EQ(parse(u"x%41://h%e9/"), "x%41|||h\u00e9||/");
  // Only the ASCII digits are digits here.
  EXPECT_EQ(parse(u"x://h/%\u0661\u0661"), "x|||h||/%\u0661\u0661");
}

TEST(Address, FilePaths) {
  EXPECT_EQ(parse(u"file:///var/log/a.log"), "file|||||/var/log/a.log");
  EXPECT_EQ(parse(u"file://./logs/a.log"), "file|||||./logs/a.log");
  EXPECT_EQ(parse(u"file:/./a.log"), "file|||||./a.log");
  EXPECT_EQ(parse(u"file:///C:/a.log"), "file|||||C:/a.log");
  EXPECT_EQ(parse(u"other://./a"), "other|||.||/a");
}

TEST(Address, ValidWebAddresses) {
  for (const UChar* good :
       {u"http://a", u"HTTP://www.a-b.example:80/p?q", u"http://.a/", u"hTTp://1"})
    EXPECT_TRUE(URIUC::isValidHTTPURI(good)) << utf8(good);
  for (const UChar* bad : {u"", u"http://", u"http://-a", u"https://a", u"http://a:",
                           u"http://a:x/", u" http://a", u"http://a\n", u"http://a b"})
    EXPECT_FALSE(URIUC::isValidHTTPURI(bad)) << utf8(bad);
}

} // namespace
