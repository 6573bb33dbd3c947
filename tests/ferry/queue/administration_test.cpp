#include "ferry/queue/factory.h"
#include "tests/ferry/queue/session_fixture.h"

using ::testing::ElementsAre;
using ::testing::EndsWith;

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
    m_script->strings[{bag, BXCA_QUEUE_NAME}] = queue;
    m_script->strings[{bag, BXCA_CLUSTER_NAME}] = "";
    m_script->strings[{bag, BXCA_MANAGER_NAME}] = "";
    m_script->strings[{bag, BXCA_CREATION_DATE}] = "2024-01-02";
    m_script->strings[{bag, BXCA_CREATION_TIME}] = "03.04.05";
    m_script->strings[{bag, BXCA_ALTERATION_DATE}] = "2024-06-07";
    m_script->strings[{bag, BXCA_ALTERATION_TIME}] = "08.09.10";
  }
  void expectBagsGone() { EXPECT_EQ(m_script->openBags, 0); }
};

const char* const START_SERVER = "Please start the command server: <strbxcsv QMgrName>";
const char* const REFUSED_2100 =
    "ERR test Error returned by the command server: Completion Code = 2 : Reason = 2100";

} // namespace

TEST_F(Administration, CreatesALocalQueue) {
  EXPECT_TRUE(BXF::QCreate(u"ORDERS[EAST]", u"QM1", true));
  EXPECT_THAT(calls(),
              ElementsAre("BXCONNX QM1", "bxCreateBag 1", "bxCreateBag 1",
                          "bxAddString 2016 -1 ORDERS", "bxAddString 2029 -1 EAST",
                          "bxAddInteger 20 1", "bxAddInteger 15 500000", "bxExecute 7 11 -2 0 0",
                          "bxDeleteBag 1", "bxDeleteBag 2", "BXCLOSE 7 -1 0", "BXDISC 7"));
  EXPECT_THAT(log(), ::testing::Contains("DBUG test Local queue ORDERS successfully created"));
}

TEST_F(Administration, OnlyLogsARefusedCreation) {
  refuse(BXRC_OBJECT_EXISTS);
  EXPECT_EQ(openSession().CreateQueue(10, false), 0);
  EXPECT_THAT(log(),
              ElementsAre("ERR test Creation of local queue Q1 failed: Completion Code = 2 : "
                          "Reason = 3008",
                          REFUSED_2100));
  expectBagsGone();
}

TEST_F(Administration, FailsWhereACommandCannotBeMade) {
  const CCMEBXSer& q = openSession();
  m_script->answer("bxAddInteger", BXCC_FAILED, 2102);
  EXPECT_STREQ(thrownBy([this] { m_session->DeleteQueue(); }).Message(2), "CreateQueue Failed");
  m_script->answer("bxCreateBag", BXCC_FAILED, 2049); // nothing severe
  EXPECT_EQ(q.GetMessageCount(), -1);
  EXPECT_THAT(calls("bxExecute"), ElementsAre());
  expectBagsGone();
}

TEST_F(Administration, DeletesAQueueWithItsMessages) {
  EXPECT_EQ(openSession().DeleteQueue(), 0);
  EXPECT_THAT(calls(),
              ElementsAre("BXCLOSE 7 8 0", "bxCreateBag 1", "bxCreateBag 1",
                          "bxAddString 2016 -1 Q1", "bxAddInteger 20 1", "bxAddInteger 1007 1",
                          "bxExecute 7 12 -2 0 0", "bxDeleteBag 1", "bxDeleteBag 2"));
}

TEST_F(Administration, LogsARefusedDeletionAndThrowsWithoutCommandServer) {
  refuse(BXRC_OBJECT_EXISTS);
  EXPECT_EQ(openSession().DeleteQueue(), 0);
  EXPECT_THAT(log(), ElementsAre(REFUSED_2100));
  m_script->answer("bxExecute", BXCC_FAILED, BXRC_COMMAND_SERVER_NOT_AVAILABLE);
  const VRKBX_Exception e = thrownBy([this] { m_session->DeleteQueue(); });
  EXPECT_EQ(e.OriginCode(), 2322);
  EXPECT_STREQ(e.Message(2), START_SERVER);
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

TEST_F(Administration, SaysWhyItCannotFindOut) {
  const std::pair<BXLONG, std::string> whys[] = {
      {2058, "BXRC_Q_MGR_NAME_ERROR: Queue manager Name is invalid"},
      {2059, "BXRC_Q_MGR_NOT_AVAILABLE: Queue manager is not available"},
      {2035, "See BX Documentation for definition"}};
  for (const auto& [reason, why] : whys) {
    m_script->answer("BXCONNX", BXCC_FAILED, reason);
    const VRKBX_Exception e = thrownBy([] { BXF::QExists(u"Q1", u""); });
    const std::string coded = std::to_string(reason) + ": " + why;
    EXPECT_EQ(e.what(), "BXCONN ended with reason code " + coded + "\n");
    EXPECT_EQ(log().back(), "ERR test BXCONNX FAILED: 2 " + coded);
  }
}

TEST_F(Administration, ShowsAQueuesStatusAndKeepsTheConnection) {
  describe(NESTED, "Q1");
  m_script->nestedBags = 1;
  UnicodeString out(u"before\n");
  EXPECT_FALSE(BXF::QStatus(out, u"Q1", u""));
  EXPECT_EQ(UCSS::ucsToUTF8(out), "before\n"
                                  "Queue Name          = Q1\n"
                                  "Cluster Name        = \n"
                                  "Queue Manager Name  = Default Queue Manager\n"
                                  "Max Depth           = 500000\n"
                                  "Current Depth       = 3\n"
                                  "Max Message Size    = 4194304\n"
                                  "Default Persistance = Persistent\n"
                                  "Create Time         = 2024-01-02  03.04.05\n"
                                  "Modify Time         = 2024-06-07  08.09.10\n");
  EXPECT_EQ(calls().front(), "BXCONN ");
  EXPECT_THAT(calls("bxAddInquiry"),
              ElementsAre(EndsWith(" 3"), EndsWith(" 15"), EndsWith(" 5"), EndsWith(" 13"),
                          EndsWith(" 2004"), EndsWith(" 2005"), EndsWith(" 2016"),
                          EndsWith(" 2027"), EndsWith(" 2028"), EndsWith(" 2029"),
                          EndsWith(" 2017")));
  EXPECT_THAT(calls("BXDISC"), ElementsAre());
  expectBagsGone();
}

TEST_F(Administration, NamesTheManagerInThreeWays) {
  describe(NESTED, "Q1");
  describe(NESTED + 1, "Q2");
  m_script->strings[{NESTED + 1, BXCA_CLUSTER_NAME}] = "EAST";
  m_script->strings[{NESTED + 1, BXCA_MANAGER_NAME}] = "QM9"; // told, but the cluster is shown
  m_script->integers[{NESTED, BXIA_DEFAULT_PERSISTENCE}] = 0;
  m_script->nestedBags = 2;
  UnicodeString text;
  BXF::QStatus(text, u"Q*", u"QM1");
  const std::string out = UCSS::ucsToUTF8(text);
  EXPECT_THAT(out, ::testing::HasSubstr("Queue Manager Name  = QM1\n"));
  EXPECT_THAT(out, ::testing::HasSubstr("Queue Manager Name  = EAST\n"));
  EXPECT_THAT(out, ::testing::HasSubstr("Default Persistance = Not Persistent\n"));
}

TEST_F(Administration, PutsFailuresIntoTheStatusText) {
  UnicodeString out;
  m_script->answer("BXCONN", BXCC_FAILED, 2059);
  EXPECT_FALSE(BXF::QStatus(out, u"Q1", u"QM1"));
  EXPECT_EQ(out, u"BXCC_FAILED: 2\n");

  out.remove();
  m_script->answer("bxExecute", BXCC_FAILED, BXRC_COMMAND_SERVER_NOT_AVAILABLE);
  EXPECT_TRUE(BXF::QStatus(out, u"Q1", u"QM1"));
  EXPECT_EQ(out, u"Please start the command server: <strbxcsv QMgrName>\n"
                 u"Call to get queue attributes failed: Completion Code = 2 : Reason = 2322\n");
  EXPECT_THAT(calls("BXDISC"), ElementsAre("BXDISC 7"));

  out.remove();
  refuse(BXRC_UNKNOWN_OBJECT);
  EXPECT_TRUE(BXF::QStatus(out, u"Q1", u"QM1"));
  EXPECT_EQ(out, u"Call to get queue attributes failed: Completion Code = 2 : Reason = 3008\n"
                 u"Error returned by the command server: Completion Code = 2 : Reason = 2085\n");
  expectBagsGone();
}
