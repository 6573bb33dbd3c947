#include "tests/manager/faults/history.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace faults {
namespace {

/// Logs written by hand, a call a line without its times; what was left on Q; and what is wrong.
struct Case {
  const char* name;
  std::vector<std::vector<std::string>> logs;
  std::vector<std::string> left, faults;
};

const std::vector<std::string> kPuts{"i put Q s w1-1-p0", "o 0 0 ", "i put Q s w1-2-p0", "o 0 0 ",
                                     "i commit",          "o 0 0 "},
    kDied{"i get Q s", "o 0 0 w1-1-p0", "i put Q s w2-1-p0", "o 0 0 ", "i commit"};

class AHistory : public ::testing::TestWithParam<Case> {};

TEST_P(AHistory, ShowsWhatIsWrong) {
  const support::TempFolder folder;
  History history;
  std::int64_t time = 0;
  for (const auto& lines : GetParam().logs) {
    std::string log;
    for (const std::string& line : lines) log += std::to_string(time += 10) + " " + line + "\n";
    const std::string path = folder / std::to_string(time);
    support::writeFile(path, log);
    history.read(path);
  }
  history.left("Q", GetParam().left);
  const auto faults = history.faults();
  ASSERT_EQ(faults.size(), GetParam().faults.size()) << ::testing::PrintToString(faults);
  for (std::size_t i = 0; i < faults.size(); ++i)
    EXPECT_THAT(faults[i], ::testing::HasSubstr(GetParam().faults[i]));
}

INSTANTIATE_TEST_SUITE_P(
    Of, AHistory,
    ::testing::Values(
        Case{"OneDeliveredAndOneLeft", {kPuts, {"i get Q d", "o 0 0 w1-1-p0"}}, {"w1-2-p0"}, {}},
        Case{"ALossAndADoubleDelivery",
             {kPuts, {"i get Q d", "o 0 0 w1-1-p0", "i get Q d", "o 0 0 w1-1-p0"}},
             {},
             {"w1-1-p0 was delivered 2", "w1-2-p0 is lost"}},
        Case{"Ghosts",
             {{"i put Q s w1-1-p0", "o 0 0 ", "i backout", "o 0 0 "}},
             {"w1-1-p0", "w9-1-p0"},
             {"w1-1-p0 was backed out and is there", "w9-1-p0 was never put"}},
        Case{"AnOvertaking",
             {kPuts, {"i get Q d", "o 0 0 w1-2-p0", "i get Q d", "o 0 0 w1-1-p0"}},
             {},
             {"w1-1-p0 (90 to 100; put by 50 to 60; got at 90 by 0 to 100) after w1-2-p0 (70"}},
        Case{"AnOvertakingOfWhatTheDeadHeld",
             {kPuts,
              {"i get Q s", "o 0 0 w1-1-p0", "i commit"},
              {"i get Q d", "o 0 0 w1-2-p0", "i get Q d", "o 0 0 w1-1-p0"}},
             {},
             {}},
        Case{"AnUnknownCommitUndone", {kPuts, kDied}, {"w1-1-p0", "w1-2-p0"}, {}},
        Case{"AnUnknownCommitDone", {kPuts, kDied}, {"w1-2-p0", "w2-1-p0"}, {}},
        Case{"HalfOfAnUnknownCommit",
             {kPuts, kDied},
             {"w1-1-p0", "w1-2-p0", "w2-1-p0"},
             {"w1-1-p0 came back though its unit of work counts", "w1-1-p0 was delivered 2"}},
        Case{"ABrowseOfWhatIsGone",
             {kPuts, {"i get Q d", "o 0 0 w1-1-p0", "i browse Q", "o 0 0 w1-1-p0 w1-2-p0"}},
             {"w1-2-p0"},
             {"w1-1-p0 was browsed after it was gone"}}),
    [](const auto& each) { return std::string(each.param.name); });

} // namespace
} // namespace faults
