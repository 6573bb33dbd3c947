#include "tests/ferry/queue/session_fixture.h"

using ::testing::ElementsAre;
using Messages = SessionTest;

TEST_F(Messages, AreSentAsTextUnderSyncpointWithTheQueuesDefaults) {
  CCMEBXSer& q = openSession();
  EXPECT_EQ(q.SendMsg(u"gr\u00fc\u00df\n", -1, 0, u"label"), 0);
  EXPECT_EQ(m_script->putData, "gr\xc3\xbc\xc3\x9f\n");
  const BXMD& md = m_script->putDescriptor;
  EXPECT_EQ(std::string(md.format, 8), "BXSTR   ");
  EXPECT_EQ(md.priority, -1);
  EXPECT_EQ(md.expiry, -1);
  EXPECT_EQ(md.persistence, 2);
  EXPECT_EQ(m_script->putOptions.options, 2);
}

TEST_F(Messages, AreSentWithPriorityAndExpiryInSeconds) {
  CCMEBXSer& q = openSession();
  for (const auto& [seconds, tenths] : {std::pair(5L, 50),
                                        {214748364L, 2147483640},
                                        {214748365L, -1},
                                        {429496730L, -1},
                                        {2147483647L, -1},
                                        {INT64_MAX, -1}}) {
    q.SendMsg(u"x", 0, seconds, u"");
    EXPECT_EQ(m_script->putDescriptor.priority, 0);
    EXPECT_EQ(m_script->putDescriptor.expiry, tenths) << seconds;
  }
  EXPECT_EQ(q.GetSentCount(), 6);
}

TEST_F(Messages, AreReceivedUnderSyncpointWhicheverComesFirst) {
  CCMEBXSer& q = openSession();
  m_script->messages = {"one", "gr\xc3\xbc\xc3\x9f", ""};
  std::string narrow;
  EXPECT_EQ(q.ReceiveMessage(narrow, 100), 0);
  EXPECT_EQ(narrow, "one");
  EXPECT_EQ(m_script->getOptions.version, 2);
  EXPECT_EQ(m_script->getOptions.matchOptions, 0);
  EXPECT_EQ(m_script->getOptions.waitInterval, 100);
  EXPECT_EQ(m_script->getDescriptor.version, 2);
  UnicodeString text;
  EXPECT_EQ(q.ReceiveMessage(text, 0), 0);
  EXPECT_EQ(text, u"gr\u00fc\u00df");
  EXPECT_EQ(q.ReceiveMessage(text, 0), 0);
  EXPECT_EQ(text, u"");
  EXPECT_EQ(q.ReceiveMessage(text, 0), -2);
  EXPECT_THAT(calls(),
              ElementsAre("BXGET 3 24576", "BXGET 2 24576", "BXGET 2 24576", "BXGET 2 24576"));
}

TEST_F(Messages, ThatDoNotFitGrowTheBufferOnce) {
  CCMEBXSer& q = openSession();
  const std::string fits(24576, 'a'), large(24577, 'b');
  m_script->messages = {fits, large, large};
  std::string text;
  q.ReceiveMessage(text, 0);
  EXPECT_EQ(text, fits);
  q.ReceiveMessage(text, 0);
  EXPECT_EQ(text, large);
  q.PeekMsg(text, 0);
  EXPECT_EQ(text, large);
  EXPECT_THAT(calls(),
              ElementsAre("BXGET 2 24576", "BXGET 2 24576", "BXGET 2 49154", "BXGET 16 49154"));
}

TEST_F(Messages, ThatCannotBeReadAreAnErrorWithItsContext) {
  CCMEBXSer& q = openSession();
  std::string text;
  m_script->answer("BXGET", BXCC_FAILED, BXRC_NOT_OPEN_FOR_INPUT);
  EXPECT_STREQ(thrownBy([&] { q.ReceiveMessage(text, 0); }).Message(2), "ReceiveMessage failed");
  m_script->answer("BXGET", BXCC_FAILED, BXRC_NOT_OPEN_FOR_BROWSE);
  EXPECT_STREQ(thrownBy([&] { q.PeekMsg(text, 0); }).Message(5), "PeekMsg Failed");
}

TEST_F(Messages, ArePeekedFromTheFirstAgainAfterTheLast) {
  CCMEBXSer& q = openSession();
  m_script->messages = {"one", "two"};
  UnicodeString text;
  EXPECT_EQ(q.PeekMsg(text, 100), 0);
  EXPECT_EQ(q.PeekMsg(text, 0), 0);
  EXPECT_EQ(text, u"two");
  EXPECT_EQ(q.PeekMsg(text, 0), -2);
  EXPECT_EQ(q.PeekMsg(text, 0), -2);
  m_script->messages = {"three", "four"};
  q.PeekMsg(text, 0);
  q.ResetCursor();
  q.PeekMsg(text, 0);
  EXPECT_THAT(calls(), ElementsAre("BXGET 17 24576", "BXGET 32 24576", "BXGET 32 24576",
                                   "BXGET 16 24576", "BXGET 16 24576", "BXGET 16 24576"));
}

TEST_F(Messages, UnderTheCursorAreDeletedWithoutTheirData) {
  CCMEBXSer& q = openSession();
  m_script->messages = {"one"};
  std::string text;
  q.PeekMsg(text, 0);
  m_script->answer("BXGET", BXCC_WARNING, BXRC_TRUNCATED_ACCEPTED);
  EXPECT_EQ(q.DeleteMessage(), 0);
  EXPECT_EQ(q.DeleteMessage(), 0); // nothing there
  q.PeekMsg(text, 0);
  m_script->answer("BXGET", BXCC_FAILED, BXRC_NO_MESSAGE_UNDER_CURSOR);
  EXPECT_EQ(q.DeleteMessage(), -1); // informational: reported, not thrown
  EXPECT_THAT(calls(), ElementsAre("BXGET 16 24576", "BXGET 320 10", "BXGET 320 10",
                                   "BXGET 16 24576", "BXGET 320 10"));
  EXPECT_EQ(log().size(), 1U);
}
