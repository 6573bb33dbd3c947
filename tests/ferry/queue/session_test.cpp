#include "tests/ferry/queue/session_fixture.h"

using ::testing::ElementsAre;
using Session = SessionTest;

TEST_F(Session, ConnectsWithAHandleOfItsOwnAndLeavesNothingOpen) {
  session(u"ORDERS[in]x", u"QM1").Open(CCMEBX::QT_BROWSE);
  EXPECT_EQ(m_script->connectOptions.version, 4);
  EXPECT_EQ(m_script->connectOptions.options, 32);
  EXPECT_EQ(m_session->GetPath(), u"ORDERS");
  EXPECT_EQ(m_session->GetLabel(), u"ORDERS");
  end();
  EXPECT_THAT(calls(),
              ElementsAre("BXCONNX QM1", "BXOPEN ORDERS 8218", "BXCLOSE 7 8 0", "BXDISC 7"));
  EXPECT_THAT(log(), ElementsAre("DBUG test Connecting to BX Manager QM1",
                                 "DBUG test Disconnecting from BX Manager QM1"));
}

TEST_F(Session, ThatCannotConnectThrowsAndDoesNotDisconnect) {
  m_script->answer("BXCONNX", BXCC_FAILED, BXRC_Q_MGR_NOT_AVAILABLE);
  const VRKBX_Exception e = thrownBy([this] { session(); });
  EXPECT_STREQ(e.what(), "BXCONN ended with reason code 2059\n");
  EXPECT_EQ(e.OriginCode(), 2059);
  EXPECT_EQ(e.Severity(), VRK_CRITICAL_ERROR);
  EXPECT_THAT(calls(), ElementsAre("BXCONNX "));
  EXPECT_EQ(log().back(), "ERR test BXCONNX FAILED: 2 2059");
}

TEST_F(Session, OpensForOutputWhatIsNoLocalQueue) {
  m_script->answer("BXOPEN", BXCC_FAILED, BXRC_UNKNOWN_OBJECT);
  EXPECT_EQ(session().Open(CCMEBX::QT_ANY), 0);
  EXPECT_THAT(calls("BXOPEN"), ElementsAre("BXOPEN Q1 8218", "BXOPEN Q1 8208"));
}

TEST_F(Session, ThatCannotOpenThrowsTheReasonOfTheLastTry) {
  m_script->answer("BXOPEN", BXCC_FAILED, BXRC_UNKNOWN_OBJECT);
  m_script->answer("BXOPEN", BXCC_FAILED, BXRC_NOT_AUTHORIZED);
  const VRKBX_Exception e = thrownBy([this] { session().Open(CCMEBX::QT_ANY); });
  EXPECT_EQ(e.OriginCode(), 2035);
  EXPECT_EQ(e.OriginMessage(), u"User not authorized");
  EXPECT_STREQ(e.what(), "BXS Insufficient Permissions");
  EXPECT_EQ(e.ExceptionCode(0), 20);
  EXPECT_STREQ(e.Message(1), "Error while using queue: Q1");
  EXPECT_EQ(e.Count(), 2);
}

TEST_F(Session, ReadsWarningsOfCommitAndBackoutDifferently) {
  CCMEBXSer& q = openSession();
  m_script->answer("BXCMIT", BXCC_WARNING, 2003);
  m_script->answer("BXBACK", BXCC_WARNING, 2003);
  EXPECT_EQ(q.CommitTran(), 0);
  EXPECT_EQ(q.RollbackTran(), -1);
  EXPECT_THAT(log(), ElementsAre());
}

TEST_F(Session, TellsWhyACommitFailed) {
  CCMEBXSer& q = openSession();
  m_script->answer("BXCMIT", BXCC_FAILED, BXRC_BACKED_OUT);
  EXPECT_EQ(q.CommitTran(), -1);
  EXPECT_THAT(log(), ElementsAre("ERR bx Queue: Q1\nBX error, reason code: 2003\n"
                                 "Error message: Work backed out"));
}

TEST_F(Session, BeginsAUnitOfWorkByDiscardingWhatIsPending) {
  m_script->answer("BXBACK", BXCC_FAILED, 2009);
  EXPECT_EQ(openSession().BeginTran(), 0);
  EXPECT_THAT(calls(), ElementsAre("BXBACK"));
}

TEST_F(Session, KeepsItsDestructorQuietWhenTheManagerIsGone) {
  openSession();
  m_script->answer("BXCLOSE", BXCC_FAILED, 2009);
  m_script->answer("BXDISC", BXCC_FAILED, 2009);
  m_recorder.m_onWrite["log"] = [] {
    throw VRK_Exception::genericError("", u"full", 0, VRK_CRITICAL_ERROR);
  };
  end();
  EXPECT_EQ(calls().back(), "BXDISC 7");
}

TEST_F(Session, CarriesEarlierFailuresAlong) {
  CCMEBXSer& q = openSession();
  EXPECT_EQ(q.HandleError(2246), 60U); // a cursor error is mild: told, not thrown
  const VRKBX_Exception e = thrownBy([&q] { q.HandleError(2053, "context"); });
  EXPECT_EQ(e.Count(), 5);
  EXPECT_STREQ(e.what(), "BXS Cursor Error");
  EXPECT_STREQ(e.Message(2), "BXS Send Error");
  EXPECT_STREQ(e.Message(4), "context");
  EXPECT_EQ(e.OriginCode(), 2053);
}
