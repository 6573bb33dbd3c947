#include <gtest/gtest.h>
#include <unicode/ustream.h>

#include "ferry/errors/bx_exception.h"
#include "ferry/errors/exception.h"
#include "ferry/errors/sql_exception.h"

namespace {

const KELErrorMessage kNotOpened(u"9113E", u"Failed to open [{0}]", {u"ferry.ini"});

TEST(ErrorMessage, PlaceholdersAreReplacedOnce) {
  auto resolve = KELErrorMessage::resolve;
  EXPECT_EQ(u"Failed to open [ferry.ini]", kNotOpened.getText());
  EXPECT_EQ(u"b{0}a", resolve(u"{1}{0}", {u"a", u"b{0}"}));
  EXPECT_EQ(u"{2} {x} {10} {", resolve(u"{2} {x} {10} {", {u"a", u"b"}));
  EXPECT_EQ(u"{a", resolve(u"{{0}", {u"a"}));
  EXPECT_EQ(u"", resolve(u"{0}", {u""}));
  EXPECT_EQ(u"abc {1}", KELErrorMessage::generic(u"abc {1}").getText());
}

TEST(ErrorStack, KeepsWhatEachLayerAdded) {
  VRK_Exception error("open", kNotOpened, 42, VRK_MINOR_ERROR, false);
  error.AppendError("load", kNotOpened, 7, VRK_WARNING)
      .appendGenericError(nullptr, u"caf\u00e9 {0}", 0, VRK_MAJOR_ERROR);
  EXPECT_EQ(3, error.Count());
  EXPECT_STREQ("Failed to open [ferry.ini]", error.what());
  EXPECT_STREQ("load", error.Function(1));
  EXPECT_EQ(7, error.ExceptionCode(1));
  EXPECT_EQ(VRK_WARNING, error.Severity(1));
  EXPECT_STREQ("", error.Function(2));
  EXPECT_STREQ("caf\u00e9 {0}", error.Message(2));

  KELErrorMessage record = error.getKELErrorMessage(0);
  EXPECT_EQ(u"9113E", record.getId());
  EXPECT_EQ(u"Failed to open [{0}]", record.getTemplate());
  EXPECT_EQ(std::vector<UnicodeString>{u"ferry.ini"}, record.getParameters());
  EXPECT_EQ(u"0000E", error.getKELErrorMessage(2).getId());

  for (int outside : {-1, 3}) {
    EXPECT_EQ(VRK_CRITICAL_ERROR, error.Severity(outside));
    EXPECT_STREQ("", error.Function(outside));
    EXPECT_STREQ("", error.Message(outside));
    EXPECT_EQ(0, error.ExceptionCode(outside));
    EXPECT_TRUE(error.getKELErrorMessage(outside).getId().isEmpty());
  }
}

TEST(ErrorStack, SeverityOnlyRises) {
  auto error = VRK_Exception::genericError("f", u"text", 0, VRK_MINOR_ERROR);
  error.appendGenericError("g", u"less", 0, VRK_WARNING);
  EXPECT_EQ(VRK_MINOR_ERROR, error.Severity());
  error.appendGenericError("g", u"more", 0, VRK_MAJOR_ERROR);
  error.appendGenericError("g", u"none", 0, VRK_NO_SEVERITY);
  EXPECT_EQ(VRK_MAJOR_ERROR, error.Severity());
  error.ResetException();
  EXPECT_EQ(0, error.Count());
  EXPECT_STREQ("", error.what());
  error.appendGenericError("g", u"again", 0, VRK_INFORMATION);
  EXPECT_EQ(VRK_CRITICAL_ERROR, error.Severity());

  VRKFormat_Exception empty;
  empty.appendGenericError("f", u"first", 0, VRK_INFORMATION);
  EXPECT_EQ(VRK_INFORMATION, empty.Severity());
}

TEST(ErrorStack, CopiesAreIndependent) {
  auto original = VRKBX_Exception::genericError("f", u"first", 2085, u"Unknown object name", 40,
                                                VRK_CRITICAL_ERROR);
  VRKBX_Exception copy(original);
  VRKBX_Exception assigned;
  assigned = original;
  original.appendGenericError("g", u"second", 0, VRK_NO_SEVERITY);
  original.ResetException();
  EXPECT_EQ(0, original.OriginCode());
  EXPECT_TRUE(original.OriginMessage().isEmpty());
  for (const VRKBX_Exception* kept : {&copy, &assigned}) {
    EXPECT_EQ(1, kept->Count());
    EXPECT_STREQ("first", kept->what());
    EXPECT_EQ(40, kept->ExceptionCode(0));
    EXPECT_EQ(2085, kept->OriginCode());
    EXPECT_EQ(u"Unknown object name", kept->OriginMessage());
  }
}

TEST(SqlException, CriticalCodesOfTheFirstEntryEndTheDatabase) {
  for (int code : {60, 50, 2, 1, 0, 3, 51}) {
    VRKSQL_Exception error("f", kNotOpened, 1, "", "", code, VRK_MAJOR_ERROR);
    error.AppendError("g", kNotOpened, 50, VRK_MAJOR_ERROR);
    EXPECT_EQ(code == 60 || code == 50 || code == 2 || code == 1, error.isCriticalDatabaseFailure())
        << code;
  }
  EXPECT_FALSE(VRKSQL_Exception().isCriticalDatabaseFailure());
}

} // namespace
