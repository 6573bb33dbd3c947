#include "ferry/queue/client_library.h"
#include "ferry/queue/queue.h"
#include "ferry/queue/session.h"
#include "ferry/text/ucss.h"
#include "tests/ferry/logging/recording_writer.h"
#include "tests/support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

/// The folder that this program looks in for its client library, and nothing else does.
const std::filesystem::path LIBRARIES =
    std::filesystem::read_symlink("/proc/self/exe").parent_path() / "own";

void provideLibrary() {
  std::filesystem::remove(LIBRARIES / "libbxic.so");
  std::filesystem::create_symlink("../answering/libbxic.so", LIBRARIES / "libbxic.so");
}

/// A queue Q of a manager of the suite's own, and a logger that records.
class Session : public ::testing::Test {
protected:
  Session() {
    static const support::TempFolder s_home;
    ::setenv("BXM_HOME", s_home.path().c_str(), 1);
    provideLibrary();
    UseUTF8CodePage_v();
    m_logger.RegisterFactory_v(u"memory", &m_recorder);
    m_logger.LoadConfig_b(u"memory://log *.!DBUG");
    CLogger::SetGlobal_v(&m_logger);
    BXF::QCreate(u"Q[EAST]", u"", false);
    m_session = std::make_unique<CCMEBXSer>(u"Q[in]x", u"");
    m_session->Open(CCMEBX::QT_ANY);
  }
  ~Session() override { m_session->DeleteQueue(); }

  void send(std::initializer_list<const UChar*> texts) {
    for (const UChar* text : texts) m_session->SendMsg(text, -1, 0, u"");
    m_session->CommitTran();
  }
  std::string peeked() {
    UnicodeString text(u"before");
    const int status = m_session->PeekMsg(text, 0);
    return status == 0 ? UCSS::ucsToUTF8(text) : std::to_string(status);
  }
  /// The first message as another program gets it.
  BXMD taken(std::string& data) {
    BXMD md = BXMD_DEFAULT;
    BXOD od = BXOD_DEFAULT;
    BXGMO gmo = BXGMO_DEFAULT;
    od.objectName[0] = 'Q';
    BXHCONN connection = BXHC_UNUSABLE;
    BXHOBJ object = BXHO_UNUSABLE;
    BXLONG length = 0, code = 0, reason = 0;
    BXCONN("", &connection, &code, &reason);
    BXOPEN(connection, &od, BXOO_INPUT_SHARED, &object, &code, &reason);
    data.resize(100);
    BXGET(connection, object, &md, &gmo, 100, data.data(), &length, &code, &reason);
    EXPECT_EQ(code, BXCC_OK) << reason;
    data.resize(static_cast<size_t>(length));
    BXDISC(&connection, &code, &reason);
    return md;
  }
  Recorder::Texts log() { return m_recorder.m_written["log"]; }

  Recorder m_recorder;
  CLogger m_logger{u"test"};
  std::unique_ptr<CCMEBXSer> m_session;
};

} // namespace

// The first test: a library that was loaded once is found wherever it lies.
TEST(ClientLibrary, StaysUntilTheLastReferenceGoes) {
  const auto isLoaded = [] {
    try {
      return FindFunc("BXOPEN") != nullptr;
    } catch (const VRKBX_Exception&) {
      return false;
    }
  };
  std::filesystem::remove(LIBRARIES / "libbxic.so");
  EXPECT_THROW(InitBXM(), VRKBX_Exception); // which takes a reference all the same
  provideLibrary();
  InitBXM();
  UninitBXM();
  EXPECT_TRUE(isLoaded());
  UninitBXM();
  EXPECT_FALSE(isLoaded());
  UninitBXM();
  InitBXM();
  EXPECT_TRUE(isLoaded());
  UninitBXM();
}

// For the thread sanitizer.
TEST(EntryPoints, ServeOneThreadWhileAnotherTakesAReference) {
  InitBXM();
  std::thread other([] { InitBXM(), UninitBXM(); });
  BXLONG code = BXCC_OK;
  BXCMIT(BXHC_UNUSABLE, &code, &code);
  other.join();
  UninitBXM();
}

TEST_F(Session, SendsTextWithTheQueuesDefaults) {
  send({u"gr\u00fc\u00df\n"});
  std::string data;
  const BXMD md = taken(data);
  EXPECT_EQ(data, "gr\u00fc\u00df\n");
  EXPECT_EQ(std::string(md.format, 8), "BXSTR   ");
  EXPECT_EQ(md.priority, 0);
  EXPECT_EQ(md.expiry, BXEI_UNLIMITED);
  EXPECT_EQ(md.persistence, 1);
  EXPECT_EQ(m_session->GetSentCount(), 1);
  EXPECT_EQ(m_session->GetPath(), u"Q");
  EXPECT_EQ(m_session->GetLabel(), u"Q");
}

TEST_F(Session, ReceivesUnderSyncpointWhicheverTextIsWanted) {
  send({u"one", u"gr\u00fc\u00df"});
  std::string narrow;
  UnicodeString text;
  EXPECT_EQ(m_session->ReceiveMessage(narrow, 100), 0);
  EXPECT_EQ(m_session->ReceiveMessage(text, 0), 0);
  EXPECT_EQ(m_session->ReceiveMessage(text, 0), -2);
  EXPECT_EQ(narrow, "one");
  m_session->BeginTran(); // takes back what is pending
  EXPECT_EQ(m_session->ReceiveMessage(narrow, 0), 0);
  EXPECT_EQ(m_session->ReceiveMessage(text, 0), 0);
  EXPECT_EQ(narrow, "one");
  EXPECT_EQ(text, u"gr\u00fc\u00df");
}

TEST_F(Session, PeeksFromTheFirstAgainAfterTheLast) {
  send({u"one", u"two"});
  for (const char* expected : {"one", "two", "-2", "one"}) EXPECT_EQ(peeked(), expected);
  m_session->ResetCursor();
  EXPECT_EQ(peeked(), "one");
}

TEST_F(Session, DeletesWhatWasPeekedLast) {
  send({u"a text that is longer than ten bytes", u"two"});
  peeked();
  EXPECT_EQ(m_session->DeleteMessage(), 0);
  EXPECT_EQ(peeked(), "two");
  std::string data;
  taken(data);
  EXPECT_EQ(m_session->DeleteMessage(), -1); // told, not thrown
  EXPECT_THAT(log(), ElementsAre(HasSubstr("BX error, reason code: 2034")));
}

TEST_F(Session, TellsWhyThereIsNoStatus) {
  UnicodeString text;
  EXPECT_FALSE(BXF::QStatus(text, u"Q", u"NONE"));
  EXPECT_EQ(text, u"BXCC_FAILED: 2\n");
  text.remove();
  EXPECT_TRUE(BXF::QStatus(text, u"NONE", u""));
  EXPECT_EQ(text, u"Call to get queue attributes failed: Completion Code = 2 : Reason = 3008\n"
                  u"Error returned by the command server: Completion Code = 2 : Reason = 2085\n");
}

TEST_F(Session, TellsTheDepthAndDeletesEvenWhatIsGone) {
  send({u"one"});
  EXPECT_EQ(m_session->GetMessageCount(), 1);
  EXPECT_EQ(m_session->DeleteQueue(), 0);
  EXPECT_EQ(m_session->GetMessageCount(), 0);
  EXPECT_EQ(m_session->DeleteQueue(), 0);
  const std::string refused =
      "ERR test Error returned by the command server: Completion Code = 2 : Reason = 2085";
  EXPECT_THAT(log(), ElementsAre("ERR test Call to get queue attributes failed: Completion Code = "
                                 "2 : Reason = 3008",
                                 refused, refused));
}

TEST_F(Session, CarriesEarlierFailuresAlong) {
  EXPECT_EQ(m_session->HandleError(2246), 60U); // a cursor error is mild: told, not thrown
  try {
    m_session->HandleError(2053, "context");
    FAIL() << "nothing was thrown";
  } catch (const VRKBX_Exception& e) {
    EXPECT_EQ(e.Count(), 5);
    EXPECT_STREQ(e.what(), "BXS Cursor Error");
    EXPECT_STREQ(e.Message(2), "BXS Send Error");
    EXPECT_STREQ(e.Message(4), "context");
    EXPECT_EQ(e.OriginCode(), 2053);
  }
}
