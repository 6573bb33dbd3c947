#include <gtest/gtest.h>
#include <unicode/ustream.h>

#include "ferry/errors/error_message.h"
#include "ferry/xml/ccme_xml.h"

namespace {

// Characters that must be written as entities, one that must not be written at all, and a surrogate
// pair.
const UnicodeString kNasty(u"<&>\"']]>\u00e9\U0001F600\x01");
const UnicodeString kSurvived(u"&lt;&amp;&gt;\"']]&gt;\u00e9\U0001F600\uFFFD");

TEST(ErrorDocument, ARecordHasKindTextAndParameters) {
  const struct {
    KELErrorMessage message;
    UnicodeString inside; // the SYSTEM_MESSAGE
  } cases[] = {
      {{u"9113E", u"Failed to open [{0}]", {u"ferry.ini"}},
       u" type=\"ERROR\"><ID>ZRKTA9113E</ID><SYSTEM_TEXT>Failed to open [ferry.ini]</SYSTEM_TEXT>"
       u"<PARAM><PARAM_TYPE>Text</PARAM_TYPE><PARAM_VALUE>ferry.ini</PARAM_VALUE></PARAM></"},
      {{u"1W", u"", {}}, u" type=\"WARNING\"><ID>ZRKTA1W</ID></"},
      {{u"1I", u"", {}}, u" type=\"INFO\"><ID>ZRKTA1I</ID></"},
      {{u"1234X", u"", {}}, u" type=\"?\"><ID>ZRKTA1234X</ID></"},
      {{u"1E", u"", {u""}},
       u" type=\"ERROR\"><ID>ZRKTA1E</ID><PARAM><PARAM_TYPE>Text</PARAM_TYPE><PARAM_VALUE></"
       u"PARAM_VALUE></"
       u"PARAM></"},
      {{kNasty + u"E", u"{0}", {kNasty}},
       u" type=\"ERROR\"><ID>ZRKTA" + kSurvived + u"E</ID><SYSTEM_TEXT>" + kSurvived +
           u"</SYSTEM_TEXT><PARAM><PARAM_TYPE>Text</PARAM_TYPE><PARAM_VALUE>" + kSurvived +
           u"</PARAM_VALUE></PARAM></"}};
  for (const auto& [message, inside] : cases) {
    CCMEXML document(u"R");
    message.asXML(document.getRoot());
    EXPECT_EQ(u"<R><SYSTEM_MESSAGE" + inside + u"SYSTEM_MESSAGE></R>", document.dump());
  }
  CCMEXML document(u"R");
  KELErrorMessage(u"", u"text {0}", {u"a"}).asXML(document.getRoot());
  EXPECT_EQ(u"<R><SYSTEM_MESSAGE/></R>", document.dump());
}

TEST(ErrorDocument, TellsOfTheMessageThatWasRefused) {
  EXPECT_EQ(u"<SYSTEM_MESSAGES><SYSTEM_MESSAGE type=\"WARNING\"><ID>ZRKTA12W</ID></SYSTEM_MESSAGE>"
            u"</SYSTEM_MESSAGES>",
            KELErrorMessage::getErrorXML(u"12W", u""));
  EXPECT_EQ(u"<SYSTEM_MESSAGES><INBOUND_MSG>" + kSurvived +
                u"</INBOUND_MSG><SYSTEM_MESSAGE type=\"ERROR\"><ID>ZRKTA1E</ID></SYSTEM_MESSAGE>"
                u"</SYSTEM_MESSAGES>",
            KELErrorMessage::getErrorXML(u"1E", kNasty));
}

} // namespace
