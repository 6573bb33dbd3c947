#include <gtest/gtest.h>
#include <thread>
#include <unicode/ustream.h>

#include "ferry/errors/exception.h"
#include "ferry/xml/ccme_xml.h"

namespace {

UnicodeString repeated(const UnicodeString& text, int32_t times) {
  UnicodeString result;
  while (times-- > 0) result += text;
  return result;
}

TEST(XmlText, EveryCharacterOfTheBasicPlaneSurvivesOrIsReplaced) {
  for (UChar32 first = 0; first <= 0xFFFF; first += 256) {
    UnicodeString text, expected;
    for (UChar32 c = first; c < first + 256; ++c) {
      bool fits = c >= 0x20 ? !U_IS_SURROGATE(c) && c < 0xFFFE : c == 9 || c == 10 || c == 13;
      text.append(UChar(c)).append(u'.');
      expected.append(fits ? c : 0xFFFD).append(u'.');
    }
    CCMEXML document(u"R");
    document.getRoot()->setText(text);
    document.getRoot()->setAttribute(u"a", text);
    auto copy = CCMEXML::parse_pob(document.dump());
    EXPECT_EQ(expected, copy->getRoot()->getText()) << std::hex << first;
    EXPECT_EQ(expected, copy->getRoot()->getAttribute(u"a")) << std::hex << first;
  }
}

TEST(XmlDocument, IsBuiltReadAndWritten) {
  CCMEXML document(u"R");
  CCMEXMLNode* child = document.getRoot()->addChild(u"C", u"one");
  child->setAttribute(u"n", u"1");
  document.getRoot()->addChild(u"D")->setText("two");
  EXPECT_EQ(u"<R><C n=\"1\">one</C><D>two</D></R>", document.dump());
  EXPECT_EQ(u"<C n=\"1\">one</C>", document.dump(child));

  auto copy = CCMEXML::parse_pob(document.dump());
  std::vector<CCMEXMLNode*> children = copy->getRoot()->getChildren();
  ASSERT_EQ(2U, children.size());
  EXPECT_EQ(u"C", children[0]->getName());
  EXPECT_EQ(u"1", children[0]->getAttribute(u"n"));
  EXPECT_EQ(u"", children[0]->getAttribute(u"m"));
  EXPECT_EQ(u"onetwo", copy->getRoot()->getText());
  EXPECT_EQ(children, copy->getRoot()->getChildren());
}

TEST(XmlDocument, WhatIsNoXmlIsRefused) {
  EXPECT_THROW(CCMEXML(u"a b"), VRK_Exception);
  EXPECT_THROW(CCMEXML(u""), VRK_Exception);
  CCMEXML document(u"R");
  EXPECT_THROW(document.getRoot()->addChild(u"<"), VRK_Exception);
  EXPECT_THROW(document.getRoot()->setAttribute(UnicodeString(u"a\0b", 3), u""), VRK_Exception);
  EXPECT_EQ(u"<R/>", document.dump());
  for (const UnicodeString& text :
       {UnicodeString(u""), UnicodeString(u"<a></b>"), UnicodeString(u"<a>&undefined;</a>"),
        UnicodeString(u"<!DOCTYPE a SYSTEM 'x'><a>&undefined;</a>"),
        UnicodeString(u"<!DOCTYPE a [%p;]><a/>"),
        UnicodeString(u"<!DOCTYPE a [<!ENTITY % p ''>]><a/>"),
        UnicodeString(u"<!DOCTYPE a [<!ATTLIST a b CDATA 'c'>]><a/>"),
        UnicodeString(u"<?xml version='1.1'?><a/>"), UnicodeString(u"<a/>\0<", 6),
        UnicodeString(u"<a>\xD83D</a>")})
    EXPECT_THROW(CCMEXML::parse_pob(text), VRK_Exception) << text;
}

TEST(XmlDocument, EntitiesAreExpandedUpToALimit) {
  UnicodeString declared(
      u"<!DOCTYPE r [<!ENTITY e 'a\"b'><!ENTITY f '&e;&e;'>]><r c='&e;'>&f;</r>");
  auto document = CCMEXML::parse_pob(declared);
  EXPECT_EQ(u"a\"ba\"b", document->getRoot()->getText());
  EXPECT_EQ(u"<r c=\"a&quot;b\">a\"ba\"b</r>", document->dump());
  for (int uses : {1000, 1100}) {
    UnicodeString large = u"<!DOCTYPE r [<!ENTITY e '" + repeated(u"x", 1000) + u"'>]><r>" +
                          repeated(u"&e;", uses) + u"</r>";
    if (uses == 1000)
      EXPECT_EQ(1000 * 1000, CCMEXML::parse_pob(large)->getRoot()->getText().length());
    else
      EXPECT_THROW(CCMEXML::parse_pob(large), VRK_Exception);
  }
}

TEST(XmlDocument, DepthIsLimited) {
  auto nested = [](int n) { return repeated(u"<a>", n) + u"t" + repeated(u"</a>", n); };
  auto document = CCMEXML::parse_pob(nested(MAX_XML_DEPTH));
  EXPECT_EQ(u"t", document->getRoot()->getText());
  EXPECT_EQ(nested(MAX_XML_DEPTH), document->dump());
  EXPECT_EQ(u"1000", document->getRoot()->evaluate(u"count(//a)"));
  EXPECT_THROW(CCMEXML::parse_pob(nested(MAX_XML_DEPTH + 1)), VRK_Exception);
  CCMEXMLNode* deepest = document->getRoot()->selectNode(u"//a[not(a)]");
  EXPECT_THROW(deepest->addChild(u"a"), VRK_Exception);
  EXPECT_NO_THROW(document->getRoot()->selectNode(u"//a[a[not(a)]]")->addChild(u"a"));
}

TEST(XmlDocument, NothingOutsideTheTextCounts) {
  const UnicodeString declared(u"<?xml version='1.0' encoding='ISO-8859-1'?>");
  EXPECT_EQ(u"\u20ac", CCMEXML::parse_pob(declared + u"<r>\u20ac</r>")->getRoot()->getText());
  EXPECT_THROW(
      CCMEXML::parse_pob(u"<!DOCTYPE r [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><r>&e;</r>"),
      VRK_Exception);
}

TEST(XPath, SelectsElementsAndValues) {
  auto document = CCMEXML::parse_pob(u"<r><a n='1'>x</a><b><a n='2'>y\u00e9</a></b></r>");
  CCMEXMLNode* root = document->getRoot();
  EXPECT_EQ(2U, root->selectNodes(u"//a").size());
  EXPECT_EQ(1U, root->selectNodes(u"a").size());
  EXPECT_EQ(root->getChildren()[0], root->selectNode(u"a"));
  EXPECT_EQ(nullptr, root->selectNode(u"c"));
  EXPECT_EQ(u"y\u00e9", root->evaluate(u"b/a"));
  EXPECT_EQ(u"2", root->evaluate(u"count(//a)"));
  EXPECT_EQ(u"2", root->evaluate(u"b/a/@n"));
  EXPECT_EQ(u"", root->evaluate(u"c"));
  // What was added since the last expression is seen.
  root->addChild(u"c", u"new");
  EXPECT_EQ(u"new", root->evaluate(u"c"));
}

TEST(XPath, AFailureIsAnErrorAndNoMore) {
  CCMEXML document(u"r");
  CCMEXMLNode* root = document.getRoot();
  CCMEXMLNode* removed = root->addChild(u"a")->addChild(u"b", u"kept");
  root->getChildren()[0]->setText(u"x");
  testing::internal::CaptureStderr();
  for (const UnicodeString& xpath :
       {UnicodeString(u"]["), UnicodeString(u"count('x')"), UnicodeString(u"'a'/b"),
        UnicodeString(u"key('a','b')"), UnicodeString(u"a | 1"), UnicodeString(u"$v"),
        UnicodeString(u"concat($v,'')"), UnicodeString(u"'a'\0b", 5)}) {
    EXPECT_THROW(root->evaluate(xpath), VRK_Exception) << xpath;
    EXPECT_THROW(root->selectNodes(xpath), VRK_Exception) << xpath;
    EXPECT_EQ(1U, root->selectNodes(u"//a").size()) << xpath;
  }
  EXPECT_THROW(removed->evaluate(u".."), VRK_Exception);
  EXPECT_EQ(u"kept", removed->getText());
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST(XPath, LimitsKeepExpressionsWithinTheStack) {
  auto document = CCMEXML::parse_pob(u"<r><a>(</a></r>");
  auto value = [&](const UnicodeString& xpath) -> UnicodeString {
    try {
      return document->getRoot()->evaluate(xpath);
    } catch (const VRK_Exception&) {
      return u"error";
    }
  };
  struct Case {
    UnicodeString before, inner, after;
    int limit;
  };
  for (const Case& c : {Case{u"self::*[", u".", u"]", MAX_XPATH_DEPTH},
                        Case{u"string(", u"a", u")", MAX_XPATH_DEPTH},
                        Case{u"./", u"a", u"", MAX_XPATH_OPERATORS}}) {
    EXPECT_EQ(u"(", value(repeated(c.before, c.limit) + c.inner + repeated(c.after, c.limit)));
    int more = c.limit + 1;
    EXPECT_EQ(u"error", value(repeated(c.before, more) + c.inner + repeated(c.after, more)));
  }
  EXPECT_EQ(u"error", value(u"'" + repeated(u"x", MAX_XPATH_LENGTH) + u"'"));
  for (UnicodeString large : {u"V", u"number('V')", u"string-length (number('V'))"})
    EXPECT_EQ(u"error", value(large.findAndReplace(u"V", u"1" + repeated(u"0", 100)))) << large;
  EXPECT_EQ(u"2,1,1", value(u"concat(string-length( 6*7 ),',',string-length(a[string-length()=1])"
                            u",',',string-length('('))"));
}

TEST(XPath, ThreadsWorkOnTheirOwnDocuments) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < 100; ++i) {
        CCMEXML document(u"r");
        document.getRoot()->addChild(u"a", u"x");
        auto copy = CCMEXML::parse_pob(document.dump());
        ASSERT_EQ(u"x", copy->getRoot()->evaluate(u"a"));
      }
    });
  for (std::thread& thread : threads) thread.join();
}

} // namespace
