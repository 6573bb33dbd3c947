#include "ferry/queue/factory.h"
#include "tests/ferry/queue/session_fixture.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class Administration : public SessionTest {
protected:
  static constexpr BXHBAG NESTED = support::FIRST_NESTED_BAG;

  void refuse(BXLONG reason) {
    m_script->answer("bxExecute", BXCC_FAILED, BXRC_COMMAND_FAILED);
    m_script->nestedBags = 1;
    m_script->integers[{NESTED, BXIA_COMPLETION}] = BXCC_FAILED;
    m_script->integers[{NESTED, BXIA_REASON}] = reason;
  }
  void describe(BXHBAG bag, const std::string& queue) {
    m_script->integers[{bag, BXIA_MAX_DEPTH}] = 500000;
    m_script->integers[{bag, BXIA_CURRENT_DEPTH}] = 3;
    m_script->integers[{bag, BXIA_MAX_MESSAGE_LENGTH}] = 4194304;
    m_script->integers[{bag, BXIA_DEFAULT_PERSISTENCE}] = 1;
    for (const BXLONG text : {BXCA_CLUSTER_NAME, BXCA_MANAGER_NAME, BXCA_CREATION_DATE,
                              BXCA_CREATION_TIME, BXCA_ALTERATION_DATE, BXCA_ALTERATION_TIME})
      m_script->strings[{bag, text}] = "";
    m_script->strings[{bag, BXCA_QUEUE_NAME}] = queue;
  }
  void expectBagsGone() { EXPECT_EQ(m_script->openBags, 0); }
};

const char* const START_SERVER = "Please start the command server: <strbxcsv QMgrName>";
const char* const REFUSED_2100 =
    "ERR test Error returned by the command server: Completion Code = 2 : Reason = 2100";

} // namespace

TEST_F(Administration, FailsWhereACommandCannotBeMade) {
  const CCMEBXSer& q = openSession();
  m_script->answer("bxAddInteger", BXCC_FAILED, 2102);
  EXPECT_STREQ(thrownBy([this] { m_session->DeleteQueue(); }).Message(2), "CreateQueue Failed");
  m_script->answer("bxCreateBag", BXCC_FAILED, 2049); // nothing severe
  EXPECT_EQ(q.GetMessageCount(), -1);
  EXPECT_THAT(calls("bxExecute"), ElementsAre());
  expectBagsGone();
}

TEST_F(Administration, TellsTheDepth) {
  CCMEBXSer& q = openSession();
  describe(NESTED, "Q1");
  EXPECT_EQ(q.GetMessageCount(), 3);
  EXPECT_THAT(calls("bxAdd"),
              ElementsAre("bxAddString 2016 -1 Q1", "bxAddInteger 20 1", "bxAddInquiry 3"));
  m_script->answer("bxExecute", BXCC_FAILED, BXRC_COMMAND_SERVER_NOT_AVAILABLE);
  EXPECT_EQ(q.GetMessageCount(), -1);
  refuse(BXRC_OBJECT_EXISTS);
  EXPECT_EQ(q.GetMessageCount(), 0);
  EXPECT_THAT(
      log(),
      ElementsAre(
          std::string("INFO test ") + START_SERVER,
          "ERR test Call to get queue attributes failed: Completion Code = 2 : Reason = 3008",
          REFUSED_2100));
  expectBagsGone();
}

TEST_F(Administration, LogsARefusedDeletion) {
  refuse(BXRC_OBJECT_EXISTS);
  EXPECT_EQ(openSession().DeleteQueue(), 0);
  EXPECT_THAT(log(), ElementsAre(REFUSED_2100));
  expectBagsGone();
}

TEST_F(Administration, CannotSayWhyForMostReasons) {
  m_script->answer("BXCONNX", BXCC_FAILED, BXRC_NOT_AUTHORIZED);
  const VRKBX_Exception e = thrownBy([] { BXF::QExists(u"Q1", u""); });
  const std::string coded = "2035: See BX Documentation for definition";
  EXPECT_EQ(e.what(), "BXCONN ended with reason code " + coded + "\n");
  EXPECT_EQ(log().back(), "ERR test BXCONNX FAILED: 2 " + coded);
}

TEST_F(Administration, DescribesAllQueuesAndKeepsTheConnection) {
  describe(NESTED, "Q1");
  describe(NESTED + 1, "Q2");
  m_script->strings[{NESTED + 1, BXCA_CLUSTER_NAME}] = "EAST";
  m_script->strings[{NESTED + 1, BXCA_MANAGER_NAME}] = "QM9"; // told, but the cluster is shown
  m_script->integers[{NESTED, BXIA_DEFAULT_PERSISTENCE}] = 0;
  m_script->nestedBags = 2;
  UnicodeString text(u"before\n");
  EXPECT_FALSE(BXF::QStatus(text, u"Q*", u"QM1"));
  const std::string out = UCSS::ucsToUTF8(text);
  EXPECT_THAT(out, ::testing::StartsWith("before\nQueue Name          = Q1\n"));
  EXPECT_THAT(out, HasSubstr("Queue Manager Name  = QM1\n"));
  EXPECT_THAT(out, HasSubstr("Default Persistance = Not Persistent\n"));
  EXPECT_THAT(out, HasSubstr("Queue Name          = Q2\n"));
  EXPECT_THAT(out, HasSubstr("Queue Manager Name  = EAST\n"));
  EXPECT_EQ(calls().front(), "BXCONN QM1");
  EXPECT_THAT(calls("BXDISC"), ElementsAre());
  expectBagsGone();
}

TEST_F(Administration, PutsFailuresIntoTheStatusText) {
  UnicodeString out;
  m_script->answer("BXCONN", BXCC_FAILED, 2059);
  EXPECT_FALSE(BXF::QStatus(out, u"Q1", u"QM1"));
  EXPECT_EQ(out, u"BXCC_FAILED: 2\n");

  out.remove();
  refuse(BXRC_UNKNOWN_OBJECT);
  EXPECT_TRUE(BXF::QStatus(out, u"Q1", u"QM1"));
  EXPECT_EQ(out, u"Call to get queue attributes failed: Completion Code = 2 : Reason = 3008\n"
                 u"Error returned by the command server: Completion Code = 2 : Reason = 2085\n");

  m_script->answer("bxExecute", BXCC_FAILED, BXRC_COMMAND_SERVER_NOT_AVAILABLE);
  EXPECT_TRUE(BXF::QStatus(out, u"Q1", u"QM1"));
  EXPECT_THAT(calls("BXDISC"), ElementsAre("BXDISC 7")); // this time only
  expectBagsGone();
}
