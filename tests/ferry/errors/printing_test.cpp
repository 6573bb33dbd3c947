#include <gtest/gtest.h>
#include <unicode/ustream.h>

#include "ferry/errors/bx_exception.h"
#include "ferry/errors/format_exception.h"
#include "ferry/errors/sql_exception.h"
#include "ferry/logging/logger.h"

namespace {

class KeepingLogger : public CLogger {
public:
  KeepingLogger() : CLogger(u"test") {}
  void VLocalLog_v(const CMsg& msg) override { messages.push_back(msg); }
  std::vector<CMsg> messages;
};

class Printing : public ::testing::Test {
protected:
  using Lines = std::vector<UnicodeString>;

  void SetUp() override {
    m_logger.messages.clear();
    CLogger::SetGlobal_v(&m_logger);
  }
  void TearDown() override { CLogger::SetGlobal_v(nullptr); }

  // The one message that was logged since the last call.
  CMsg logged() {
    EXPECT_EQ(1U, m_logger.messages.size());
    CMsg last = m_logger.messages.empty() ? CMsg() : m_logger.messages.back();
    m_logger.messages.clear();
    return last;
  }
  Lines lines() { return logged().Lines_rob(); }

  KeepingLogger m_logger;
  VRK_Exception m_coded{"open", KELErrorMessage::generic(u"Queue not found"), 42, VRK_MAJOR_ERROR,
                        false};
  VRK_Exception m_plain{"open", KELErrorMessage::generic(u"Queue not found"), 0, VRK_MAJOR_ERROR,
                        false};
};

TEST_F(Printing, WithoutStackTheFirstEntryIsTheMessage) {
  m_coded.appendGenericError("run", u"second", 17, VRK_WARNING);
  m_coded.PrintException(3, true, false, false);
  EXPECT_EQ(Lines{u"MAJOR ERROR[KEL-00042]: : Queue not found"}, lines());
  m_plain.PrintException(3, true, false, false);
  EXPECT_EQ(Lines{u"MAJOR ERROR: Queue not found"}, lines());
}

TEST_F(Printing, TheStackNamesTheOriginOnce) {
  m_coded.appendGenericError("run", u"50% of \u00e9 %S", 17, VRK_WARNING);
  m_coded.appendGenericError("", u"last", 0, VRK_WARNING);
  m_coded.PrintException(3, true, true, false);
  EXPECT_EQ((Lines{u"MAJOR ERROR: ", u"{", u"  open [KEL-00042]: Queue not found",
                   u"  run [00017]: 50% of \u00e9 %S", u"   last", u"}"}),
            lines());
  m_coded.PrintStack(3, false, false, false);
  EXPECT_EQ((Lines{u"{", u"  [KEL-00042]: Queue not found", u"  [00017]: 50% of \u00e9 %S",
                   u"  last", u"}"}),
            lines());
}

TEST_F(Printing, AnEmptyStackPrintsNoBraces) {
  VRKBX_Exception empty;
  empty.PrintException(4, true, true, false);
  EXPECT_EQ(Lines{u"UNSPECIFIED[BX-0]: "}, lines());
  m_plain.ResetException();
  m_plain.PrintException(4, true, false, false);
  EXPECT_EQ(Lines{u"CRITICAL ERROR: "}, lines());
}

TEST_F(Printing, QueueManagerErrorsShowTheReason) {
  auto error = VRKBX_Exception::genericError("get", u"failed", 2033, u"No message available", 40,
                                             VRK_INFORMATION);
  error.PrintException(0, true, false, false);
  CMsg message = logged();
  EXPECT_EQ(Lines{u"INFORMATION[BX-2033]: No message available"}, message.Lines_rob());
  EXPECT_EQ(u"bx", message.Category_rob());
  error.SetBXError(5, u"other");
  error.PrintException(0, true, true, false);
  EXPECT_EQ((Lines{u"INFORMATION[BX-5]: other", u"{", u"  get [BX-00040]: failed", u"}"}), lines());
}

TEST_F(Printing, DatabaseErrorsShowTheStatement) {
  VRKSQL_Exception error("run", KELErrorMessage::generic(u"failed"), 1017, "select 1", "no table",
                         42, VRK_MAJOR_ERROR);
  error.PrintException(3, false, true, false);
  CMsg message = logged();
  EXPECT_EQ((Lines{u"MAJOR ERROR[SQL-00042]: no table", u"SQL Statement[SQL-00042]: select 1", u"{",
                   u"  [SQL-00042]: failed", u"}"}),
            message.Lines_rob());
  EXPECT_EQ(u"sql", message.Category_rob());
  error.SetSQLStatement("");
  error.PrintException(3, false, false, false);
  EXPECT_EQ(Lines{u"MAJOR ERROR[SQL-00042]: no table"}, lines());
}

TEST_F(Printing, TheWordIsTheExceptionsTheLogSeverityTheCallers) {
  const std::pair<const UChar*, unsigned> expected[] = {
      {u"INFORMATION: t", 0x10}, {u"WARNING: t", 0x04},        {u"MINOR ERROR: t", 0x02},
      {u"MAJOR ERROR: t", 0x02}, {u"CRITICAL ERROR: t", 0x01}, {u"UNSPECIFIED: t", 0x40}};
  for (int i = 0; i < 6; ++i) {
    VRKFormat_Exception error("", KELErrorMessage(), 0, static_cast<VRK_Severity>(i));
    error.PrintError(5 - i, "", "t", false);
    CMsg message = logged();
    EXPECT_EQ(Lines{expected[i].first}, message.Lines_rob());
    EXPECT_EQ(expected[5 - i].second, message.Severity_n());
    EXPECT_EQ(u"pipeline", message.Category_rob());
  }
}

} // namespace
