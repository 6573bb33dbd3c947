#include "tests/manager/contract/fixture.h"

#include <atomic>
#include <set>
#include <thread>

namespace contract {

namespace {

/// True when what one writer wrote is in the order in which it wrote.
bool inOrder(const std::vector<std::string>& lines, const std::string& stem) {
  int last = -1;
  for (const std::string& line : lines) {
    if (!line.starts_with(stem + "-")) continue;
    const int number = std::stoi(line.substr(stem.size() + 1));
    if (number <= last) return false;
    last = number;
  }
  return true;
}

} // namespace

class Traffic : public OnQueue {};
FOR_EVERY_BINDING(Traffic);

TEST_P(Traffic, ThreadsWithTheirOwnConnectionsMoveEveryRecordOnce) {
  constexpr int kEach = 500;
  std::vector<std::thread> threads;
  std::vector<std::vector<std::string>> got(2);
  for (const char* stem : {"x", "y"})
    threads.emplace_back([this, stem] {
      Connection c = connect();
      const Queue to = c.open("Q");
      int done = 0;
      for (const std::string& text : numbered(stem, kEach)) {
        EXPECT_EQ(to.put(text, kPutLater), kOk);
        if (++done % 10 > 0) continue;
        EXPECT_EQ(c.commit(), kOk);
      }
    });
  for (auto& texts : got)
    threads.emplace_back([this, &texts] {
      Connection c = connect();
      const Queue from = c.open("Q");
      while (true) {
        const Message m = from.get({.options = BXGMO_WAIT, .wait = 20'000});
        if (m.text == "end" || m.codes != kOk) return;
        texts.push_back(m.text);
      }
    });
  threads[0].join();
  threads[1].join();
  ASSERT_EQ(q.put("end"), kOk);
  ASSERT_EQ(q.put("end"), kOk);
  threads[2].join();
  threads[3].join();
  std::set<std::string> all(got[0].begin(), got[0].end());
  all.insert(got[1].begin(), got[1].end());
  EXPECT_EQ(got[0].size() + got[1].size(), 2U * kEach);
  EXPECT_EQ(all.size(), 2U * kEach);
  for (const auto& texts : got) EXPECT_TRUE(inOrder(texts, "x") && inOrder(texts, "y"));
}

TEST_P(Traffic, TwoThreadsMayShareAConnection) {
  auto work = [this](const std::string& stem) {
    for (const std::string& text : numbered(stem, 300)) {
      EXPECT_EQ(q.put(text, kPutLater), kOk);
      EXPECT_EQ(mine.commit(), kOk);
      Queue another = mine.open("Q");
      EXPECT_EQ(another.get(kTake).codes, kOk);
      EXPECT_EQ(mine.commit(), kOk);
      EXPECT_EQ(another.close(), kOk);
    }
  };
  std::thread one(work, "x"), two(work, "y");
  one.join();
  two.join();
  EXPECT_EQ(mine.depth("Q"), 0);
}

TEST_P(Traffic, ADisconnectWaitsForTheCallThatRuns) {
  for (int i = 0; i < 200; ++i) {
    Connection c = connect();
    const Queue theirs = c.open("Q");
    std::atomic<bool> put = false;
    std::thread late([&] { put = theirs.put("late", kPutLater) == kOk; });
    EXPECT_EQ(c.disconnect(), kOk);
    late.join();
    EXPECT_EQ(q.get().codes == kOk, put.load()) << "a put that succeeded was committed";
  }
}

TEST_P(Traffic, ADisconnectTakesNothingFromUnderABrowse) {
  ASSERT_EQ(q.put("x"), kOk);
  for (int i = 0; i < 50; ++i) {
    Connection c = connect();
    const Queue theirs = c.open("Q");
    std::atomic<bool> began = false;
    std::thread browser([&] {
      while (theirs.browseFirst().codes == kOk) began = true;
    });
    while (!began) std::this_thread::yield();
    EXPECT_EQ(c.disconnect(), kOk);
    browser.join();
  }
}

/// Writers fill a queue at once: no more goes in than fits.
TEST_P(Traffic, WritersThatMeetAtTheLimitDoNotPassIt) {
  ASSERT_EQ(mine.createQueue("FULL", {{BXIA_MAX_DEPTH, 200}}), kOk);
  std::atomic<int> done = 0;
  auto fill = [&] {
    Connection c = connect();
    const Queue to = c.open("FULL");
    for (int i = 0; i < 300; ++i) done += to.put("x") == kOk;
  };
  std::thread one(fill), two(fill);
  one.join();
  two.join();
  EXPECT_EQ(done, 200);
  EXPECT_EQ(mine.open("FULL").drain().size(), 200U);
}

/// While messages of one queue come and go, its depth is told as it is: between the least and the
/// most that there ever is.
TEST_P(Traffic, DepthIsExactWhileOthersCommit) {
  for (int i = 0; i < 20; ++i) ASSERT_EQ(q.put("x"), kOk);
  std::atomic<bool> stop = false;
  std::thread mover([&] {
    Connection c = connect();
    const Queue theirs = c.open("Q");
    for (int i = 0; !stop; ++i) {
      EXPECT_EQ(theirs.put("x", i % 2 == 0 ? PutHow{} : kPutLater), kOk);
      EXPECT_EQ(theirs.get(i % 3 == 0 ? GetHow{} : kTake).codes, kOk);
      EXPECT_EQ(c.commit(), kOk);
    }
  });
  BXLONG least = INT32_MAX, most = 0;
  for (int i = 0; i < 20'000; ++i) {
    const BXLONG depth = mine.depth("Q");
    least = std::min(least, depth);
    most = std::max(most, depth);
  }
  stop = true;
  mover.join();
  EXPECT_GE(least, 20);
  EXPECT_LE(most, 21);
}

} // namespace contract
