#include <gtest/gtest.h>

#include "ferry/errors/error_message.h"
#include "ferry/xml/ccme_xml.h"
#include "second_reader.h"

namespace {

std::string written(const KELErrorMessage& message) {
  CCMEXML document(u"R");
  message.asXML(document.getRoot());
  return SecondReader(document.dump()).outline();
}

std::string errorXml(const UnicodeString& id, const UnicodeString& inbound) {
  return SecondReader(KELErrorMessage::getErrorXML(id, inbound)).outline();
}

TEST(ErrorDocument, ARecordHasKindTextAndParameters) {
  KELErrorMessage message(u"9113E", u"Failed to open ini file for reading [{0}]", {u"ferry.ini"});
  EXPECT_EQ("R{SYSTEM_MESSAGE(type=ERROR){ID{ZRKTA9113E}"
            "SYSTEM_TEXT{Failed to open ini file for reading [ferry.ini]}"
            "PARAM{PARAM_TYPE{Text}PARAM_VALUE{ferry.ini}}}}",
            written(message));
}

TEST(ErrorDocument, TheLastLetterIsTheKind) {
  EXPECT_EQ("R{SYSTEM_MESSAGE(type=WARNING){ID{ZRKTA1W}}}", written({u"1W", u"", {}}));
  EXPECT_EQ("R{SYSTEM_MESSAGE(type=INFO){ID{ZRKTA1I}}}", written({u"1I", u"", {}}));
  EXPECT_EQ("R{SYSTEM_MESSAGE(type=?){ID{ZRKTA1234X}}}", written({u"1234X", u"", {}}));
}

TEST(ErrorDocument, EmptyPartsAreLeftOut) {
  EXPECT_EQ("R{SYSTEM_MESSAGE{}}", written({u"", u"text {0}", {u"a"}}));
  EXPECT_EQ("R{SYSTEM_MESSAGE(type=ERROR){ID{ZRKTA1E}PARAM{PARAM_TYPE{Text}PARAM_VALUE{a}}"
            "PARAM{PARAM_TYPE{Text}PARAM_VALUE{}}}}",
            written({u"1E", u"", {u"a", u""}}));
  EXPECT_EQ("SYSTEM_MESSAGES{SYSTEM_MESSAGE(type=WARNING){ID{ZRKTA12W}}}", errorXml(u"12W", u""));
}

TEST(ErrorDocument, TextSurvivesInEveryField) {
  const UnicodeString nasty(u"<&>\"']]>\u00e9\U0001F600\x01", -1);
  const std::string survived = "<&>\"']]>\u00e9\U0001F600\uFFFD";
  EXPECT_EQ("R{SYSTEM_MESSAGE(type=ERROR){ID{ZRKTA" + survived + "E}SYSTEM_TEXT{" + survived +
                "}PARAM{PARAM_TYPE{Text}PARAM_VALUE{" + survived + "}}}}",
            written({nasty + u"E", u"{0}", {nasty}}));
  EXPECT_EQ("SYSTEM_MESSAGES{INBOUND_MSG{" + survived + "}SYSTEM_MESSAGE(type=ERROR){ID{ZRKTA" +
                survived + "E}}}",
            errorXml(nasty + u"E", nasty));
}

} // namespace
