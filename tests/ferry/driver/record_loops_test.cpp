#include "ferry/driver/record_input.h"
#include "ferry/driver/record_loops.h"
#include "ferry/errors/exception.h"
#include "ferry/text/ucss.h"
#include "tests/ferry/driver/fake_queue.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/process.h"
#include "tests/support/redirect.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>

using namespace std::chrono_literals;
using namespace support;
using ::testing::ElementsAre;

namespace {

class RecordLoops : public ::testing::Test {
protected:
  RecordLoops() {
    UseUTF8CodePage_v();
    CCommitBatch::m_pNow = [] { return CCommitBatch::Clock::time_point(FakeQueue::m_time); };
  }
  ~RecordLoops() override { CFerryEx::m_sGrep.remove(); }

  /// Each runs a loop with this standard input, and keeps what it writes.
  void copy(const std::string& input, long count = -1) {
    run(input, [&] { CFerryEx::ProcessFile2Q(&m_queue, count, -1, -1, -1); });
  }
  void show(long count, bool peek = false) {
    run("", [&] { CFerryEx::ProcessQ2File(&m_queue, count, peek, -1); });
  }
  template <typename Loop>
  void run(const std::string& input, Loop loop) {
    const TempFolder folder;
    writeFile(folder / "in", input);
    try {
      const Redirect in(0, folder / "in", O_RDONLY);
      const Redirect out(1, folder / "out", O_WRONLY | O_CREAT);
      const Redirect err(2, folder / "err", O_WRONLY | O_CREAT);
      loop();
    } catch (const VRK_Exception& e) {
      m_failure = e.what();
    }
    m_out = readFile(folder / "out");
    m_err = readFile(folder / "err");
  }

  FakeQueue m_queue;
  std::string m_out;
  std::string m_err;
  std::string m_failure;
};

} // namespace

TEST_F(RecordLoops, CountOnlyWhatPassesTheFilter) {
  CFerryEx::m_sGrep = u"x";
  copy("a\nx1\nb\nx2\nx3\n", 2);
  EXPECT_THAT(m_queue.m_sent, ElementsAre(u"x1\n", u"x2\n"));
  copy("a\nx1\n", 0);
  EXPECT_EQ(m_err, "(0) Records Sent.\n");
}

TEST_F(RecordLoops, TakeOnlyWhatPassesTheFilter) {
  CFerryEx::m_sGrep = u"x";
  m_queue.m_records = {"a", "x1", "b", "x2"};
  show(-1, true);
  EXPECT_EQ(m_out + m_err, "x1\nx2\n(2) Records Received.\n");
  EXPECT_EQ(m_queue.m_records.size(), 4U);
  show(-1);
  EXPECT_EQ(m_out + m_err, "x1\nx2\n(2) Records Received.\n");
  EXPECT_THAT(m_queue.m_records, ElementsAre("a", "b"));
}

TEST_F(RecordLoops, EndWithATerminalsFirstEnd) {
  int ours = -1, theirs = -1;
  ASSERT_EQ(::openpty(&ours, &theirs, nullptr, nullptr, nullptr), 0);
  ASSERT_EQ(::write(ours, "abc\4\4def\n", 9), 9);
  const Redirect in(0, theirs);
  CFerryEx::ProcessFile2Q(&m_queue, -1, -1, -1, -1);
  EXPECT_THAT(m_queue.m_sent, ElementsAre(u"abc"));
  ::close(ours);
}

TEST_F(RecordLoops, CommitAtThePaceOfTheDisk) {
  const struct {
    size_t records, bytes, queues;
    std::chrono::microseconds putTakes, commitTakes;
    std::vector<size_t> units; // of the first queue
  } cases[] = {
      {2500, 2, 1, 10us, 0us, {1000, 1000, 500}},
      {6000, 2, 1, 10us, 5ms, {1000, 2000, 2000, 1000}}, // four times as long
      {8000, 2, 2, 10us, 5ms, {1000, 2000, 1000}},       // in turn with the other
      {6000, 2, 1, 50us, 50ms, {1000, 2008, 2008, 984}}, // at most 100 ms, from the first look on
      {200, 2, 1, 1ms, 0us, {112, 88}},
      {60, 400000, 2, 1us, 10s, {3, 21, 6}}, // at most 16 MiB for both
  };
  for (const auto& [records, bytes, queues, putTakes, commitTakes, units] : cases) {
    std::string lines;
    for (size_t n = 0; n < records; ++n) lines += std::string(bytes - 1, 'x') + '\n';
    std::array<FakeQueue, 2> queue;
    for (FakeQueue& q : queue) q.m_putTakes = putTakes, q.m_commitTakes = commitTakes;
    run(lines, [&, queues = queues] {
      CRecordInput input({&queue[0], &queue[1]});
      std::string_view line;
      for (size_t n = 0; input.Read_b(line); input.Sent_v(n++ % queues))
        queue[n % queues].SendMsg(u"", 0, 0, u"");
    });
    EXPECT_EQ(queue[0].m_units, units) << records << " of " << bytes << " for " << queues;
  }
}

TEST_F(RecordLoops, CommitWhatWaitsBehindLinesThatDoNotPass) {
  CFerryEx::m_sGrep = u"x";
  CCommitBatch::m_pNow = [] { return CCommitBatch::Clock::time_point(FakeQueue::m_time += 60ms); };
  copy("x\n" + std::string(40, '\n') + "x\n");
  EXPECT_THAT(m_queue.m_units, ElementsAre(1, 1));
}

TEST_F(RecordLoops, CommitWhatIsRemovedOneByOne) {
  m_queue.m_records = {"1", "2"};
  m_queue.m_onGet = [] { std::this_thread::sleep_for(std::chrono::milliseconds(2)); };
  run("", [this] { CFerryEx::CleanQueue(&m_queue, -1); });
  EXPECT_THAT(m_queue.m_notes, ElementsAre("get", "commit", "get", "commit", "get"));
}

TEST_F(RecordLoops, StopTakingWhenARecordCannotBeWritten) {
  m_queue.m_records = {"1", "2", "3"};
  for (const int room : {3, 0}) { // for the first record and a half, and for none
    run("", [&] {
      const FileSizeLimit limit(room);
      CFerryEx::ProcessQ2File(&m_queue, -1, false, -1);
    });
    EXPECT_EQ(m_failure, "Cannot write to standard output: File too large");
    EXPECT_EQ(m_out, room > 0 ? "1\n" : "");
    EXPECT_EQ(m_queue.m_records.size(), 1U);
  }
}
