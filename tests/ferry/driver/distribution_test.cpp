#include "tests/support/process.h"
#include "tests/support/redirect.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

using namespace support;
using namespace std::chrono_literals;
using ::testing::HasSubstr;

namespace {

/// The built program and queue manager, with a configuration file and queues Q0, Q1, ...
class Distribution : public ::testing::Test {
protected:
  std::unique_ptr<Process> ferry(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), std::filesystem::absolute(binDir()).string() + "/ferry");
    auto process = std::make_unique<Process>(arguments);
    process->environment("BXM_HOME", m_folder / "home").in(m_folder.path().string());
    return process;
  }
  /// Creates that many queues and a section S about them; more lines may follow.
  void configure(int queues, const std::string& more = "") {
    for (int n = 0; n < queues; ++n) ferry({"-C", "Q" + std::to_string(n), "-T"})->run();
    limit(queues, more);
  }
  void limit(int queues, const std::string& more) {
    std::string section = "[S]\n";
    for (int n = 0; n < queues; ++n)
      section += "QOut" + std::to_string(n) + " =  Q" + std::to_string(n) + "  \n";
    writeFile(m_folder / "new.ini", section + more);
    std::filesystem::rename(m_folder / "new.ini", m_folder / "ferry.ini");
  }
  Result distribute(const std::string& input, std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"-i", "S", "-T"});
    return ferry(more)->input(input).run();
  }
  void fill(const std::string& queue, const std::string& lines) {
    ferry({"-f", queue, "-T"})->input(lines).run();
  }
  std::string take(const std::string& queue) { return ferry({"-r", queue, "-T"})->run().out; }

  TempFolder m_folder;
};

} // namespace

TEST_F(Distribution, TakesTheQueuesInTurn) {
  configure(2);
  const Result r = distribute("1\n2\n3\n4\n5\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "Final stats.\nSent 3 records to Q0\nSent 2 records to Q1\n");
  EXPECT_EQ(take("Q0"), "1\n3\n5\n");
  EXPECT_EQ(take("Q1"), "2\n4\n");
}

TEST_F(Distribution, KeepsTheOrderOnAQueueNamedTwice) {
  configure(1, "QOut1=Q0\n");
  EXPECT_EQ(distribute("1\n2\n3\n").err,
            "Final stats.\nSent 2 records to Q0\nSent 1 records to Q0\n");
  EXPECT_EQ(take("Q0"), "1\n2\n3\n");
}

TEST_F(Distribution, SkipsLeadingRecords) {
  configure(1, "SkipCount=3\n");
  const Result r = distribute("1\n2\n3\n4\n5\n", {"-c", "0"}); // tested behind a record only
  EXPECT_EQ(r.err, "Skipped 1 records of 3\nFinal stats.\nSent 2 records to Q0\n");
  EXPECT_EQ(take("Q0"), "4\n5\n");
}

TEST_F(Distribution, PassesOverAFullQueueAndCountsTheAttempt) {
  configure(2, "MessageCountMax=2\n");
  fill("Q0", "x\ny\n");
  EXPECT_EQ(distribute("1\n2\n").err, "Final stats.\nSent 0 records to Q0\nSent 2 records to Q1\n");
  take("Q1");
  EXPECT_EQ(distribute("1\n2\n3\n", {"-c", "2"}).err,
            "Final stats.\nSent 0 records to Q0\nSent 1 records to Q1\n");
}

TEST_F(Distribution, StepsPastACountThatAFullQueueUsesUp) {
  configure(2, "MessageCountMax=3\n");
  fill("Q0", "x\ny\nz\n");
  // Two attempts for the first record, from 1 to -1: no limit any more.
  EXPECT_THAT(distribute("1\n2\n3\n", {"-c", "1"}).err, HasSubstr("Sent 3 records to Q1\n"));
}

TEST_F(Distribution, PausesWhileAllAreFullAndReadsItsLimitsAgain) {
  configure(2, "MessageCountMax=1\nFullCountMax=2\nFullPause=50\n");
  auto p = ferry({"-i", "S", "-T"});
  p->input("1\n2\n3\n").start();
  const std::string pause = "Pausing 50ms during message saturation.\n"
                            "Sent 1 records to Q0\nSent 1 records to Q1\n";
  ASSERT_TRUE(eventually([&] { return p->err().starts_with(pause + pause); }));
  EXPECT_EQ(ferry({"-p", "Q0", "-T"})->run().out, "1\n"); // a consumer sees what is there
  limit(2, "MessageCountMax=2\nFullCountMax=2\nFullPause=70\n");
  const Result r = p->wait();
  EXPECT_EQ(r.status, 0);
  // Which queue is tried first with the new limits depends on the moment.
  const std::string twice = "Sent 2 records to ", once = "Sent 1 records to ",
                    last = "Final stats.\n";
  EXPECT_TRUE(r.err.ends_with(last + twice + "Q0\n" + once + "Q1\n") ||
              r.err.ends_with(last + once + "Q0\n" + twice + "Q1\n"))
      << r.err;
}

TEST_F(Distribution, WaitsForAConsumerWhereNoPauseIsSet) {
  configure(1, "MessageCountMax=1\n");
  auto p = ferry({"-i", "S", "-T"});
  p->input("1\n2\n").start();
  std::string taken;
  ASSERT_TRUE(eventually([&] { return (taken += take("Q0")) == "1\n2\n"; }));
  EXPECT_EQ(p->wait().err, "Final stats.\nSent 2 records to Q0\n");
}

TEST_F(Distribution, EndsWithItsStatisticsOnASignal) {
  configure(1, "MessageCountMax=1\nFullCountMax=1\nFullPause=60000\n");
  writeFile(m_folder / "in", "1\n2\n");
  const Redirect in(STDIN_FILENO, m_folder / "in", O_RDONLY);
  auto p = ferry({"-i", "S", "-T"});
  p->inherit(STDIN_FILENO).start();
  ASSERT_TRUE(eventually([&] { return p->err().ends_with("records to Q0\n"); }));
  p->signal(SIGTERM);
  const Result r = p->wait(10s);
  EXPECT_EQ(::lseek(STDIN_FILENO, 0, SEEK_CUR), 2); // the second one is given back
  EXPECT_EQ(r.status, 128 + SIGTERM);
  EXPECT_TRUE(r.err.ends_with("Final stats.\nSent 1 records to Q0\n")) << r.err;
  EXPECT_EQ(take("Q0"), "1\n");
}

TEST_F(Distribution, DeliversEachLineAtOnce) {
  configure(2);
  auto p = ferry({"-i", "S", "-T"});
  p->pipe(0).start().write("1\n2\n");
  EXPECT_TRUE(eventually([&] { return take("Q1") == "2\n"; }));
  EXPECT_EQ(take("Q0"), "1\n");
  p->close(0);
  EXPECT_EQ(p->wait().status, 0);
}

TEST_F(Distribution, NeedsAFileAndAFirstQueue) {
  EXPECT_THAT(distribute("1\n").err,
              ::testing::StartsWith("ERROR: Failed to open ini file for reading [ferry.ini]\n"));
  writeFile(m_folder / "ferry.ini", "[S]\nQOut1=Q0\n");
  const Result r = distribute("1\n");
  EXPECT_EQ(r.status, 255);
  EXPECT_THAT(r.err,
              ::testing::StartsWith("ERROR: No output queue QOut0 in section [S] of ferry.ini\n"));
}
