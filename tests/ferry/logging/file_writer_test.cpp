#include "fake_system.h"
#include "ferry/logging/file_writer.h"
#include "recording_writer.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::ElementsAre;

class FileWriterTest : public ::testing::Test {
protected:
  void start(const std::string& query, const std::string& style = "style=bare&") {
    m_writer.Start_v(URIUC(UnicodeString::fromUTF8("file://" + m_path + "?" + style + query)));
  }
  void write(const UnicodeString& line) { m_writer.Write_v(u"T", u"S", u"C:1", {line}); }
  /// Writes a line and more than a kibibyte.
  void writeMuch(const UnicodeString& line) {
    write(line);
    m_writer.Write_v(u"T", u"S", u"C:1", {UnicodeString(1024, u'.', 1024)});
  }
  /// The first line of the file, of copy 0, ..., "-" for one that is missing.
  std::vector<std::string> files(int count = 4) const {
    std::vector<std::string> lines{firstLine(m_path)};
    for (int n = 0; n < count - 1; ++n)
      lines.push_back(firstLine(m_path + "." + std::to_string(n)));
    return lines;
  }
  static std::string firstLine(const std::string& path) {
    std::string line = "-";
    std::getline(std::ifstream(path), line);
    return line;
  }
  std::string content() const { return support::readFile(m_path); }
  void put(const std::string& suffix, const std::string& text) {
    support::writeFile(m_path + suffix, text + "\n");
  }

  support::TempFolder m_folder;
  const std::string m_path = m_folder / "a.log";
  FakeSystem m_system;
  CFileWriter m_writer;
};

TEST_F(FileWriterTest, AppendsFromTheFirstMessageOn) {
  put("", "old");
  start("", "");
  EXPECT_EQ(content(), "old\n");
  m_writer.Write_v(u"T", u"S", u"C:1", {u"one", u"zw\u00F6"});
  m_writer.Stop_v();
  write(u"again");
  EXPECT_EQ(content(), "old\nT [S] C:1: one\nT [S] C:1: zw\u00F6\nT [S] C:1: again\n");
}

TEST_F(FileWriterTest, NeverWritesAFileWritersReport) {
  start("");
  m_writer.Write_v(u"T", u"S", u"filewriter:1", {u"report"});
  EXPECT_THAT(files(1), ElementsAre("-"));
  m_writer.Write_v(u"T", u"S", u"filewriters:1", {u"other"});
  EXPECT_THAT(files(1), ElementsAre("other"));
}

TEST_F(FileWriterTest, LooksAtTheSizeAtFirstAndThenOnceAMinute) {
  put("", std::string(2000, 'x'));
  start("rotateSize=1&keep=1");
  write(u"first");
  EXPECT_EQ(files(1).front(), "-") << "rotated, and opened again by the next message";
  writeMuch(u"second");
  m_system.passMinutes(1);
  write(u"a minute, but not more");
  EXPECT_EQ(files()[0], "second");
  m_system.passMinutes(0.01);
  write(u"more");
  write(u"third");
  EXPECT_THAT(files(), ElementsAre("third", "second", "-", "-"));
  writeMuch(u"fourth");
  start("rotateSize=1&keep=1");
  write(u"at first again");
  EXPECT_THAT(files(), ElementsAre("-", "third", "-", "-"));
}

TEST_F(FileWriterTest, ExactlyTheLimitIsNotBeyondIt) {
  start("rotateSize=1");
  write(UnicodeString(1023, u'x', 1023)); // and a line feed
  EXPECT_NE(files(1).front(), "-");
  m_system.passMinutes(2);
  write(u"");
  EXPECT_EQ(files(1).front(), "-");
}

TEST_F(FileWriterTest, KeepsSoManyCopies) {
  const auto rotate = [&](const std::string& text, unsigned keep) {
    put("", text);
    m_writer.DoRotate_v(UnicodeString::fromUTF8(m_path), keep);
    return files(5);
  };
  for (const char* copy : {"0", "1", "2"}) put(std::string(".") + copy, copy);
  EXPECT_THAT(rotate("a", 3), ElementsAre("-", "a", "0", "1", "-"));
  EXPECT_THAT(rotate("b", 0), ElementsAre("-", "a", "0", "1", "-"));
  EXPECT_THAT(rotate("c", CFileWriter::KEEP_ALL), ElementsAre("-", "c", "a", "0", "1"));
  EXPECT_THAT(rotate("d", 1), ElementsAre("-", "d", "a", "0", "1"));
  std::remove((m_path + ".1").c_str());
  EXPECT_THAT(rotate("e", CFileWriter::KEEP_ALL), ElementsAre("-", "e", "d", "0", "1"));
}

TEST_F(FileWriterTest, AgeAndNonsenseRotateNothing) {
  for (const char* query : {"rotateAge=24", "rotateSize=much", "rotateSize=4194304"}) {
    start(query);
    m_system.passMinutes(3);
    writeMuch(u"first");
    EXPECT_THAT(files(2), ElementsAre("first", "-")) << query;
  }
}

TEST_F(FileWriterTest, GoesOnInTheSameFileWhenItCannotRotate) {
  m_system.m_renameFails = true;
  start("rotateSize=1");
  writeMuch(u"one");
  m_system.passMinutes(2);
  write(u"two");
  write(u"three");
  EXPECT_TRUE(content().ends_with("two\nthree\n"));
}

TEST_F(FileWriterTest, ReportsAFileThatCannotBeOpened) {
  start("");
  m_system.m_openFails = true;
  try {
    write(u"x");
    FAIL() << "nothing thrown";
  } catch (const VRKLog_Exception& e) {
    EXPECT_EQ(e.what(), "Failed to open log file: " + m_path);
    EXPECT_EQ(e.ExceptionCode(0), 1);
    EXPECT_EQ(e.Severity(), VRK_CRITICAL_ERROR);
  }
  m_system.m_openFails = false;
  write(u"later");
  EXPECT_EQ(content(), "later\n");
}

TEST_F(FileWriterTest, ATornLineIsFollowedByALineOfItsOwn) {
  start("");
  write(u"whole");
  {
    const support::FileSizeLimit tight(10);
    EXPECT_THROW(write(u"torn apart"), VRKLog_Exception);
  }
  write(u"next");
  EXPECT_EQ(content(), "whole\ntorn\nnext\n");
}

TEST(FullDisk, FailsTheCallAndReportsToTheOtherWriters) {
  Recorder recorder;
  CLogger logger(u"mod");
  logger.RegisterFactory_v(u"rec", &recorder);
  ASSERT_TRUE(logger.LoadConfig_b(u"file:///dev/full *.*\nfile:///dev/full *.*\nrec://r *.!DBUG"));
  CLogger::SetGlobal_v(&logger);
  try {
    CLogger::Log_v(CSeverity::INFO, u"text");
    ADD_FAILURE() << "nothing thrown";
  } catch (const VRKLog_Exception& e) {
    EXPECT_STREQ(e.what(), "Failed to write to log file: /dev/full");
  }
  const std::string report = "CRIT filewriter Failed to write to log file: /dev/full";
  EXPECT_THAT(recorder.m_written["r"], ElementsAre("INFO mod text", report, report));
}

} // namespace
