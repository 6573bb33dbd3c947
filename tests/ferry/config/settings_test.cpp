#include "ferry/config/settings.h"
#include "ferry/config/thread_attribute.h"
#include "ferry/logging/logger.h"

#include <gtest/gtest.h>

namespace {

UnicodeString configFile(bool expectFound) {
  UnicodeString value;
  EXPECT_EQ(GetConfigFile_b(value), expectFound);
  return value;
}

// One test, since what it is about is what the process has been told so far.
TEST(Settings, DefaultsUntilTheyAreMade) {
  UnicodeString value(u"left over");
  GetAppName_v(value);
  EXPECT_EQ(value, u"UNKNOWN_APP");
  GetAppVer_v(value);
  EXPECT_EQ(value, u"UNKNOWN_VER");
  GetProdDesc_v(value);
  EXPECT_EQ(value, u"");
  std::string narrow = "left over";
  EXPECT_FALSE(GetRoutefile_b(narrow));
  EXPECT_EQ(narrow, "");
  EXPECT_EQ(configFile(false), u".ini");

  SetAppVer_v(u"1");
  GetAppVer_v(value);
  EXPECT_EQ(value, u"1");
  SetRoutefile_v(std::string("r\u00F6ute"));
  EXPECT_TRUE(GetRoutefile_b(value));
  EXPECT_EQ(value, u"r\u00F6ute");
  SetModuleName_v(u"/opt/bin/ferry");
  EXPECT_EQ(configFile(true), u"ferry.ini");
  SetConfigFile_v(u"/etc/other.ini");
  EXPECT_EQ(configFile(true), u"/etc/other.ini");
}

TEST(Settings, ModuleNameIsWhatNamesTheModule) {
  const std::pair<const char*, const char*> names[] = {{"/opt/bin/ferry", "ferry"},
                                                       {"C:\\tools\\ferry.exe", "ferry"},
                                                       {"ferry.EXE", "ferry.EXE"},
                                                       {"a\\b/c.exe", "c"},
                                                       {"a/b\\c", "c"},
                                                       {"dir/", ""},
                                                       {".exe", ""},
                                                       {"a.exe.exe", "a.exe"}};
  for (const auto& [given, kept] : names) {
    SetModuleName_v(std::string(given));
    std::string name;
    EXPECT_TRUE(GetModuleName_b(name));
    EXPECT_EQ(name, kept) << given;
  }
}

TEST(Settings, TransportsFillTheFirstFreeNumber) {
  SetNextTransport_v(u"a");
  SetNextTransport_v(std::string("b"));
  SetTransport_v(u"e", 5);
  SetNextTransport_v(u"c");
  SetNextTransport_v(u"d");
  SetNextTransport_v(u"f");
  UnicodeString all;
  UnicodeString value;
  for (int n = 1; GetTransport_b(value, n); ++n) all += value;
  EXPECT_EQ(all, u"abcdef");
  EXPECT_FALSE(GetTransport_b(value, -1));
}

TEST(ThreadAttribute, RaisesASmallStackAndLeavesALargeOne) {
  ::testing::internal::CaptureStdout();
  CLogger logger(u"mod");
  ASSERT_TRUE(logger.LoadConfig_b(u"console://stdout/?style=bare mod.DBUG"));
  CLogger::SetGlobal_v(&logger);
  CThreadAttribute thread;
  ASSERT_TRUE(thread.setStackSize(65536));
  setupThread(thread);
  EXPECT_EQ(thread.stackSize(), 2097152U);
  ASSERT_TRUE(thread.setStackSize(8388608));
  setupThread(thread);
  EXPECT_EQ(thread.stackSize(), 8388608U);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Thread Stack Size [2097152]\nThread Stack Size [8388608]\n");
}

} // namespace
