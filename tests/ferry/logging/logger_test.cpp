#include "fake_system.h"
#include "ferry/logging/logger.h"
#include "recording_writer.h"
#include "tests/support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <utime.h>

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class LoggerTest : public ::testing::Test {
protected:
  LoggerTest() {
    m_logger.RegisterFactory_v(u"rec", &m_recorder);
    CLogger::SetGlobal_v(&m_logger);
  }
  ~LoggerTest() override { CLogger::SetGlobal_v(nullptr); }

  bool load(const UnicodeString& text) {
    const bool loaded = m_logger.LoadConfig_b(text);
    m_recorder.m_written.clear();
    return loaded;
  }
  void log(unsigned severity, const UChar* text) { CLogger::Log_v(severity, text); }
  Recorder::Texts written(const char* host) { return m_recorder.m_written[host]; }
  void writeConfig(const std::string& text, std::time_t time) {
    std::ofstream(m_file) << text;
    const utimbuf times{time, time};
    utime(m_file.c_str(), &times);
  }
  UnicodeString path() const { return UnicodeString::fromUTF8(m_file); }

  support::TempFolder m_folder;
  const std::string m_file = m_folder / "log.conf";
  FakeSystem m_system;
  Recorder m_recorder; // before the logger, whose writers report to it
  CVRKLogger m_logger{u"mod"};
};

TEST_F(LoggerTest, FiltersBySeverityAndCategory) {
  ASSERT_TRUE(load(u"rec://a *.!DBUG\n rec://b\t \u00A0 bx.ERR;bx.WARN \r\nrec://c *.*"));
  log(CSeverity::INFO, u"one");
  log(CSeverity::DBUG, u"two");
  CLogger::Log_v(u"bx", CSeverity::ERR, u"three");
  CLogger::Log_v(u"sql", CSeverity::ERR, u"four");
  CLogger::Log_v(u"bx", CSeverity::USER, u"five");
  EXPECT_THAT(written("a"),
              ElementsAre("INFO mod one", "ERR bx three", "ERR sql four", "USER bx five"));
  EXPECT_THAT(written("b"), ElementsAre("ERR bx three"));
  EXPECT_THAT(written("c"), ElementsAre("INFO mod one", "DBUG mod two", "ERR bx three",
                                        "ERR sql four", "USER bx five"));
}

TEST_F(LoggerTest, SeveralBitsNeedAMaskWithAllOfThem) {
  ASSERT_TRUE(load(u"rec://one *.ERR\nrec://most *.!DBUG\nrec://all *.*"));
  log(CSeverity::CRIT | CSeverity::ERR, u"both");
  log(0, u"none");
  EXPECT_THAT(written("one"), ElementsAre("UNKNOWN mod none"));
  EXPECT_THAT(written("most"), ElementsAre("UNKNOWN mod both", "UNKNOWN mod none"));
}

TEST_F(LoggerTest, AWriterGetsAMessageOnceInTheOrderOfTheMasks) {
  std::vector<std::string> order;
  for (const char* host : {"x", "y", "z"})
    m_recorder.m_onWrite[host] = [&order, host] { order.push_back(host); };
  ASSERT_TRUE(load(u"rec://x mod.*;mod.ERR\nrec://y *.*;*.ERR\nrec://z *.ERR;*.!DBUG"));
  order.clear();
  log(CSeverity::ERR, u"text");
  EXPECT_THAT(order, ElementsAre("y", "z", "x"));
}

TEST_F(LoggerTest, MessagesHaveLinesAndATime) {
  ASSERT_TRUE(load(u"rec://a *.*"));
  CMsg msg(u"cat", CSeverity::NOTE);
  CLogger::Log_v(msg);
  EXPECT_THAT(written("a"), IsEmpty());
  msg.AddLine_rob(u"%s %S", "narrow", u"wide").AddLine_rob(u"%d", -1);
  msg.SetTime_v(m_system.m_now - 1000 * 86400 * 40LL);
  CLogger::Log_v(msg);
  EXPECT_THAT(written("a"), ElementsAre("NOTE cat narrow wide\n-1"));
  const UnicodeString then = m_recorder.m_time;
  msg.Set_v(u"", CSeverity::ERR);
  EXPECT_TRUE(msg.Lines_rob().empty());
  log(CSeverity::ERR, u"now");
  EXPECT_NE(m_recorder.m_time, then);
  EXPECT_EQ(m_recorder.m_time.length(), 14);
}

TEST_F(LoggerTest, LoadingReplacesTheWriters) {
  ASSERT_TRUE(load(u"rec://a *.*\nrec://b *.*"));
  m_recorder.m_events.clear();
  ASSERT_TRUE(load(u"# a comment\n\n  \nrec://$MODULE_NAME-$NODE_NAME *.*"));
  EXPECT_THAT(m_recorder.m_events,
              ElementsAre("stop a", "stop b", "delete a", "delete b", "start mod-mod"));
  ASSERT_TRUE(m_logger.ReloadConfig_b());
  m_logger.Clear_v();
  EXPECT_THAT(m_recorder.m_events, ElementsAre("stop a", "stop b", "delete a", "delete b",
                                               "start mod-mod", "stop mod-mod", "delete mod-mod",
                                               "start mod-mod", "stop mod-mod", "delete mod-mod"));
}

TEST_F(LoggerTest, AWrongConfigurationLeavesTheOldOne) {
  ASSERT_TRUE(load(u"rec://a *.ERR;logger.*"));
  const std::pair<const UChar*, const char*> wrong[] = {
      {u"rec://n *.* more", "ERR logger Invalid config line: rec://n *.* more"},
      {u"  rec://n\t", "ERR logger Invalid config line: rec://n"},
      {u"ftp://n *.*", "ERR logger Unknown log type [ftp] for config line: ftp://n *.*"},
      {u"rec://n bx", "ERR logger Invalid filter: bx"},
      {u"rec://n *.*;bx.", "ERR logger Invalid filter: *.*;bx."},
      {u"rec://n *.!NONE", "ERR logger Invalid filter: *.!NONE"},
      {u"rec://n *.err", "ERR logger Invalid filter: *.err"},
      {u"rec://n ;;", "ERR logger Invalid filter: ;;"}};
  for (const auto& [text, message] : wrong) {
    m_recorder.m_events.clear();
    EXPECT_FALSE(m_logger.LoadConfig_b(u"rec://first *.*\n" + UnicodeString(text)));
    EXPECT_EQ(written("a").back(), message);
    EXPECT_THAT(m_recorder.m_events, ::testing::Each("delete ?"));
  }
  EXPECT_EQ(written("a").front(), "DBUG logger Got config line: rec://first *.*");
  log(CSeverity::ERR, u"still here");
  EXPECT_EQ(written("a").back(), "ERR mod still here");
}

TEST_F(LoggerTest, AFailingWriterStopsNeitherTheOthersNorALoad) {
  ASSERT_TRUE(load(u"rec://odd *.*\nrec://a *.*\nrec://b *.*\nrec://c *.*"));
  m_recorder.m_onWrite["odd"] = [] { throw 7; };
  for (const char* host : {"a", "b"})
    m_recorder.m_onWrite[host] = [host] {
      throw VRK_Exception::genericError("f", UnicodeString(host) + u" broke", 7, VRK_MINOR_ERROR);
    };
  try {
    log(CSeverity::INFO, u"text");
    FAIL() << "nothing thrown";
  } catch (const VRKLog_Exception& e) {
    EXPECT_STREQ(e.what(), "b broke");
    EXPECT_EQ(e.Severity(), VRK_MINOR_ERROR);
  }
  EXPECT_THAT(written("c"), ElementsAre("INFO mod text"));
  EXPECT_FALSE(CLogger::TryLog_b(CSeverity::INFO, u"%d", 1));
  EXPECT_FALSE(m_logger.LoadConfig_b(u"nonsense"));
  EXPECT_TRUE(m_logger.LoadConfig_b(u"rec://c *.*\nrec://odd *.*"));
  EXPECT_FALSE(CLogger::TryLog_b(CSeverity::INFO, u"the odd one throws a number"));
  EXPECT_TRUE(m_logger.LoadConfig_b(u"rec://c *.*"));
  EXPECT_TRUE(CLogger::TryLog_b(u"cat", CSeverity::INFO, u"%d", 2));
}

TEST_F(LoggerTest, WritersThatCannotBeMadeOrStartedAreReported) {
  ASSERT_TRUE(load(u"rec://a *.!DBUG"));
  m_recorder.m_createFails = true;
  EXPECT_FALSE(m_logger.LoadConfig_b(u"rec://b *.*"));
  m_recorder.m_createFails = false;
  EXPECT_THAT(written("a"), ElementsAre("ERR logger Failed to create log writer for config line: "
                                        "rec://b *.*: no writer"));
  EXPECT_TRUE(m_logger.LoadConfig_b(u"rec://nostart bx.*\nrec://odd bx.*\nrec://b *.!DBUG"));
  EXPECT_THAT(written("b"),
              ElementsAre("ERR logger Failed to start log writer [rec://nostart]: no start",
                          "ERR logger Failed to start log writer [rec://odd]: unknown exception"));
}

TEST_F(LoggerTest, AReloadWaitsForTheMessageUnderWay) {
  ASSERT_TRUE(load(u"rec://a mod.*"));
  std::future<bool> reload;
  m_recorder.m_onWrite["a"] = [&] {
    m_recorder.m_events.clear();
    reload = std::async([&] { return m_logger.LoadConfig_b(u"rec://b *.!DBUG"); });
    EXPECT_EQ(reload.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  };
  log(CSeverity::INFO, u"text");
  EXPECT_TRUE(reload.get());
  EXPECT_THAT(m_recorder.m_events, ElementsAre("stop a", "delete a", "start b"));
}

TEST_F(LoggerTest, AWriterMayReloadAndLogWhileItWrites) {
  ASSERT_TRUE(load(u"rec://a mod.*"));
  m_recorder.m_onWrite["a"] = [&] {
    m_recorder.m_events.clear();
    EXPECT_TRUE(m_logger.LoadConfig_b(u"rec://b *.!DBUG"));
    EXPECT_THAT(m_recorder.m_events, ElementsAre("start b")) << "a is still in use";
    log(CSeverity::INFO, u"inner");
  };
  log(CSeverity::INFO, u"outer");
  EXPECT_THAT(m_recorder.m_events, ElementsAre("start b", "stop a", "delete a"));
  EXPECT_THAT(written("b"), ElementsAre("INFO mod inner"));
}

TEST_F(LoggerTest, NoGlobalLoggerNoMessage) {
  ASSERT_TRUE(load(u"rec://a *.*"));
  CLogger::SetGlobal_v(nullptr);
  log(CSeverity::ERR, u"text");
  EXPECT_TRUE(CLogger::TryLog_b(CMsg(u"", CSeverity::ERR).AddLine_rob(u"text")));
  EXPECT_THAT(written("a"), IsEmpty());
  {
    CVRKLogger shortLived(u"short");
    CLogger::SetGlobal_v(&shortLived);
  }
  log(CSeverity::ERR, u"the logger has taken its leave");
}

TEST_F(LoggerTest, LoadsAFileAndFollowsItsChanges) {
  writeConfig("\xEF\xBB\xBF# caf\xC3\xA9\r\nrec://a *.!DBUG\r\n", 1000);
  ASSERT_TRUE(m_logger.LoadConfigFile_b(path().getTerminatedBuffer()));
  log(CSeverity::INFO, u"first");
  writeConfig("rec://b *.!DBUG", 999); // a change all the same
  m_system.passMinutes(1);
  const int stats = m_system.m_stats;
  log(CSeverity::INFO, u"not looked yet");
  EXPECT_EQ(m_system.m_stats, stats);
  m_system.passMinutes(0.01);
  log(CSeverity::INFO, u"new file");
  EXPECT_THAT(written("a"), ElementsAre("INFO mod first", "INFO mod not looked yet"));
  EXPECT_THAT(written("b"), ElementsAre("INFO mod new file"));
}

TEST_F(LoggerTest, AWatchedFileThatBreaksLeavesTheOldConfiguration) {
  writeConfig("rec://a *.!DBUG", 1000);
  ASSERT_TRUE(m_logger.LoadConfigFile_b(path().getTerminatedBuffer()));
  writeConfig("nonsense", 2000);
  m_system.passMinutes(2);
  log(CSeverity::INFO, u"one");
  EXPECT_THAT(written("a"),
              ElementsAre("ERR logger Invalid config line: nonsense",
                          "ERR logger Failed to load new config file " + m_file, "INFO mod one"));
  std::remove(m_file.c_str());
  m_system.passMinutes(2);
  log(CSeverity::INFO, u"two");
  EXPECT_EQ(written("a")[3], "ERR logger Failed to stat logger config file: " + m_file);
  EXPECT_EQ(written("a").back(), "INFO mod two");
}

TEST_F(LoggerTest, RefusesAFileThatCannotBeRead) {
  ASSERT_TRUE(load(u"rec://a *.!DBUG"));
  const std::string folder = m_folder.path().string();
  ::mkfifo(m_file.c_str(), 0600); // nobody writes into it
  EXPECT_FALSE(m_logger.LoadConfigFile_b(path().getTerminatedBuffer()));
  EXPECT_FALSE(m_logger.LoadConfigFile_b(UnicodeString::fromUTF8(folder).getTerminatedBuffer()));
  const std::string text = "ERR logger Failed to open configuration file [";
  EXPECT_THAT(written("a"), ElementsAre(text + m_file + "]. Retaining current config.",
                                        text + folder + "]. Retaining current config."));
}

} // namespace
