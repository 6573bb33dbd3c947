#include "ferry/logging/console_writer.h"

#include <gtest/gtest.h>

namespace {

/// What a console writer for the destination prints, standard output and error.
std::pair<std::string, std::string> print(const UnicodeString& destination) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  CConsoleWriter writer;
  writer.Start_v(URIUC(destination));
  writer.Write_v(u"03/14 15:09:26", u"INFO", u"mod:7", {u"one %s", u"zw\u00F6"});
  writer.Stop_v();
  const std::string out = ::testing::internal::GetCapturedStdout();
  return {out, ::testing::internal::GetCapturedStderr()};
}

TEST(ConsoleWriter, ChoosesStreamAndStyle) {
  using Outputs = std::pair<std::string, std::string>;
  const std::string full =
      "03/14 15:09:26 [INFO] mod:7: one %s\n03/14 15:09:26 [INFO] mod:7: zw\u00F6\n";
  const std::string bare = "one %s\nzw\u00F6\n";
  EXPECT_EQ(print(u"console://stdout"), Outputs(full, ""));
  EXPECT_EQ(print(u"console://stdout/?style=bare"), Outputs(bare, ""));
  EXPECT_EQ(print(u"console://STDOUT/?style=Bare"), Outputs("", full));
  EXPECT_EQ(print(u"system:///?style=bare"), Outputs("", bare));
}

} // namespace
