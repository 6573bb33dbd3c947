#include "ferry/logging/uriuc.h"

#include <gtest/gtest.h>

namespace {

std::string utf8(const UnicodeString& s) {
  std::string out;
  return s.toUTF8String(out);
}

/// "scheme|user|password|host|port|path", each parameter after a "?".
std::string parse(const UnicodeString& text, std::initializer_list<const UChar*> names) {
  const URIUC uri(text);
  std::string out = utf8(uri.Scheme_rob() + u"|" + uri.User_rob() + u"|" + uri.Password_rob() +
                         u"|" + uri.Host_rob() + u"|" + uri.Port_rob() + u"|" + uri.Path_rob());
  for (const UChar* name : names) {
    const UnicodeString* value = uri.FindQuery_pob(name);
    out += value ? "?" + utf8(*value) : "?(none)";
  }
  return out;
}

TEST(Address, HasParts) {
  const struct {
    const UChar* text;
    std::initializer_list<const UChar*> names;
    const char* parts;
  } cases[] = {{u"", {}, "|||||/"},
               {u"console://stdout", {}, "console|||stdout||/"},
               {u"x://h:8080/p", {}, "x|||h|8080|/p"},
               {u"x:/a/b", {}, "x|||||/a/b"},
               {u"x://joe:pw@h:1/p", {}, "x|joe|pw|h|1|/p"},
               {u"x://joe@h/p", {}, "x||joe|h||/p"},
               {u"x://h:1/p@q", {}, "x|||h|1|/p@q"},
               {u"x://h/p?a=1&b=2;c=3", {u"a", u"b", u"c", u"d"}, "x|||h||/p?1?2?3?(none)"},
               {u"x://h/?a=1&a=2", {u"a"}, "x|||h||/?2"},
               {u"x://h/?a&b=2", {u"a", u"a&b"}, "x|||h||/?(none)?2"},
               {u"x://h/?a=x=y;b", {u"a", u"b"}, "x|||h||/?x=y?"},
               {u"x://h?a=1", {u"a"}, "x|||h?a=1||/?(none)"},
               {u"x://h/a%20b", {}, "x|||h||/a b"},
               {u"x://h/a%zz", {}, "x|||h||/a%zz"},
               {u"x://h/%", {}, "x|||h||/%"},
               {u"x://a%2Fb/?%61=%3d", {u"a"}, "x|||a/b||/?="},
               {u"x%41://h%e9/", {}, "x%41|||h\u00e9||/"},
               {u"x://h/%\u0661\u0661", {}, "x|||h||/%\u0661\u0661"}, // digits, but not ASCII
               {u"file:///var/log/a.log", {}, "file|||||/var/log/a.log"},
               {u"file://./logs/a.log", {}, "file|||||./logs/a.log"},
               {u"file:/./a.log", {}, "file|||||./a.log"},
               {u"file:///C:/a.log", {}, "file|||||C:/a.log"},
               {u"other://./a", {}, "other|||.||/a"}};
  for (const auto& [text, names, parts] : cases) EXPECT_EQ(parse(text, names), parts);
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
