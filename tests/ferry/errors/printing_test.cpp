#include <gtest/gtest.h>

#include "ferry/errors/bx_exception.h"
#include "ferry/errors/exception.h"
#include "ferry/errors/sql_exception.h"
#include "ferry/logging/logger.h"
#include "tests/ferry/logging/recording_writer.h"

namespace {

class Printing : public ::testing::Test {
protected:
  Printing() {
    m_logger.RegisterFactory_v(u"rec", &m_recorder);
    m_logger.LoadConfig_b(u"rec://log *.*");
    m_recorder.m_written.clear();
    CLogger::SetGlobal_v(&m_logger);
  }

  // The one message that was logged since the last call: severity, category and lines.
  std::string logged() {
    Recorder::Texts messages = std::exchange(m_recorder.m_written["log"], {});
    EXPECT_EQ(1U, messages.size());
    return messages.empty() ? "" : messages.back();
  }

  Recorder m_recorder;
  CLogger m_logger{u"test"};
  VRK_Exception m_coded{"open", KELErrorMessage::generic(u"Queue not found"), 42, VRK_MAJOR_ERROR,
                        false};
  VRK_Exception m_plain{"open", KELErrorMessage::generic(u"Queue not found"), 0, VRK_MAJOR_ERROR,
                        false};
};

TEST_F(Printing, WithoutStackTheFirstEntryIsTheMessage) {
  m_coded.appendGenericError("run", u"second", 17, VRK_WARNING);
  m_coded.PrintException(3, true, false, false);
  EXPECT_EQ("ERR test MAJOR ERROR[KEL-00042]: : Queue not found", logged());
  m_plain.PrintException(3, true, false, false);
  EXPECT_EQ("ERR test MAJOR ERROR: Queue not found", logged());
}

TEST_F(Printing, TheStackNamesTheOriginOnce) {
  m_coded.appendGenericError("run", u"50% of \u00e9 %S", 17, VRK_WARNING);
  m_coded.appendGenericError("", u"last", 0, VRK_WARNING);
  m_coded.PrintException(3, true, true, false);
  EXPECT_EQ("ERR test MAJOR ERROR: \n{\n  open [KEL-00042]: Queue not found\n"
            "  run [00017]: 50% of \u00e9 %S\n   last\n}",
            logged());
  m_coded.PrintStack(3, false, false, false);
  EXPECT_EQ("ERR test {\n  [KEL-00042]: Queue not found\n  [00017]: 50% of \u00e9 %S\n  last\n}",
            logged());
}

TEST_F(Printing, AnEmptyStackPrintsNoBraces) {
  VRKBX_Exception().PrintException(4, true, true, false);
  EXPECT_EQ("CRIT bx UNSPECIFIED[BX-0]: ", logged());
  m_plain.ResetException();
  m_plain.PrintException(4, true, false, false);
  EXPECT_EQ("CRIT test CRITICAL ERROR: ", logged());
}

TEST_F(Printing, QueueManagerErrorsShowTheReason) {
  auto error = VRKBX_Exception::genericError("get", u"failed", 2033, u"No message available", 40,
                                             VRK_INFORMATION);
  error.PrintException(0, true, false, false);
  EXPECT_EQ("INFO bx INFORMATION[BX-2033]: No message available", logged());
  error.SetBXError(5, u"other");
  error.PrintException(0, true, true, false);
  EXPECT_EQ("INFO bx INFORMATION[BX-5]: other\n{\n  get [BX-00040]: failed\n}", logged());
}

TEST_F(Printing, DatabaseErrorsShowTheStatement) {
  VRKSQL_Exception error("run", KELErrorMessage::generic(u"failed"), 1017, "select 1", "no table",
                         42, VRK_MAJOR_ERROR);
  error.PrintException(3, false, true, false);
  EXPECT_EQ("ERR sql MAJOR ERROR[SQL-00042]: no table\nSQL Statement[SQL-00042]: select 1\n"
            "{\n  [SQL-00042]: failed\n}",
            logged());
  error.SetSQLStatement("");
  error.PrintException(3, false, false, false);
  EXPECT_EQ("ERR sql MAJOR ERROR[SQL-00042]: no table", logged());
}

TEST_F(Printing, TheWordIsTheExceptionsTheLogSeverityTheCallers) {
  const std::pair<const char*, const char*> expected[] = {
      {"INFORMATION", "INFO"}, {"WARNING", "WARN"},        {"MINOR ERROR", "ERR"},
      {"MAJOR ERROR", "ERR"},  {"CRITICAL ERROR", "CRIT"}, {"UNSPECIFIED", "DBUG"}};
  for (int i = 0; i < 6; ++i) {
    VRKFormat_Exception error("", KELErrorMessage(), 0, static_cast<VRK_Severity>(i));
    error.PrintError(5 - i, "", "t", false);
    EXPECT_EQ(expected[5 - i].second + std::string(" pipeline ") + expected[i].first + ": t",
              logged());
  }
}

} // namespace
