#include "tests/manager/contract/fixture.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace contract {

using testing::ElementsAre;

/// A queue may be deleted, and made again under its name, while others work on it.
class Deletion : public OnQueue {};
FOR_EVERY_BINDING(Deletion);

TEST_P(Deletion, NeedsAnEmptyQueueOrAPurge) {
  EXPECT_EQ(q.put("1", kPutLater), kOk);
  EXPECT_EQ(mine.deleteQueue("Q"), failed(BXRC_Q_NOT_EMPTY)) << "an uncommitted put is there";
  EXPECT_EQ(mine.commit(), kOk);
  EXPECT_EQ(q.get(kTake).text, "1");
  EXPECT_EQ(mine.deleteQueue("Q"), failed(BXRC_Q_NOT_EMPTY)) << "so is what may come back";
  EXPECT_EQ(mine.commit(), kOk);
  EXPECT_EQ(mine.deleteQueue("Q"), kOk);
  EXPECT_EQ(mine.deleteQueue("Q"), failed(BXRC_UNKNOWN_OBJECT));
}

TEST_P(Deletion, OthersAreToldAndLoseNothingElse) {
  ASSERT_EQ(mine.createQueue("R"), kOk);
  Connection other = connect();
  Queue theirQ = other.open("Q"), theirR = other.open("R");
  ASSERT_EQ(q.put("1"), kOk);
  ASSERT_EQ(q.put("2"), kOk);
  EXPECT_EQ(theirQ.browseFirst().text, "1");
  EXPECT_EQ(theirQ.get(kTake).text, "1");
  EXPECT_EQ(theirQ.put("3", kPutLater), kOk);
  EXPECT_EQ(theirR.put("lost with it", kPutLater), kOk);
  EXPECT_EQ(mine.deleteQueue("Q", BXPO_YES), kOk);
  EXPECT_EQ(theirQ.get().codes, failed(BXRC_Q_DELETED));
  EXPECT_EQ(theirQ.browseNext().codes, failed(BXRC_Q_DELETED));
  EXPECT_EQ(theirQ.underCursor().codes, failed(BXRC_Q_DELETED));
  EXPECT_EQ(theirQ.put("4"), failed(BXRC_Q_DELETED));
  EXPECT_EQ(other.commit(), failed(BXRC_BACKED_OUT));
  EXPECT_EQ(mine.depth("R"), 0);
  EXPECT_EQ(other.commit(), kOk);
  EXPECT_EQ(theirR.put("kept"), kOk);
  EXPECT_EQ(theirQ.close(), kOk);
  EXPECT_EQ(other.open("Q").codes, failed(BXRC_UNKNOWN_OBJECT));
}

TEST_P(Deletion, WhatWasTakenFromTheOldQueueDoesNotTouchTheNew) {
  Connection other = connect();
  const Queue theirs = other.open("Q");
  for (int i = 0; i < 3; ++i) ASSERT_EQ(q.put("old"), kOk);
  ASSERT_EQ(q.get().text, "old"); // tidied up later
  ASSERT_EQ(theirs.get(kTake).text, "old");
  ASSERT_EQ(mine.deleteQueue("Q", BXPO_YES), kOk);
  ASSERT_EQ(mine.createQueue("Q"), kOk);
  const Queue fresh = mine.open("Q");
  for (const std::string& text : numbered("new", 3)) ASSERT_EQ(fresh.put(text), kOk);
  ASSERT_EQ(fresh.get(kTake).text, "new-0");
  EXPECT_EQ(theirs.put("stray"), failed(BXRC_Q_DELETED));
  EXPECT_EQ(other.backout(), kOk);
  EXPECT_EQ(mine.depth("Q"), 3);
  EXPECT_EQ(mine.commit(), kOk);
  EXPECT_THAT(fresh.drain(), ElementsAre("new-1", "new-2"));
  EXPECT_EQ(mine.depth("Q"), 0);
}

TEST_P(Deletion, ADeadReaderOfTheOldQueueDoesNotTouchTheNew) {
  for (int i = 0; i < 3; ++i) ASSERT_EQ(q.put("old"), kOk);
  const auto dying = other();
  for (const char* words : {"sgetn Q 2", "sput Q stray"}) dying->words(words);
  ASSERT_EQ(mine.deleteQueue("Q", BXPO_YES), kOk);
  ASSERT_EQ(mine.createQueue("Q"), kOk);
  dying->kill();
  EXPECT_EQ(connect().codes, kOk); // connecting tidies up after the dead
  const Queue here = mine.open("Q");
  for (const std::string& text : numbered("new", 3)) ASSERT_EQ(here.put(text), kOk);
  EXPECT_EQ(here.drain(), numbered("new", 3));
  EXPECT_EQ(mine.depth("Q"), 0);
}

/// Reading leaves work behind that is done a little later, in its own thread.
TEST_P(Deletion, GoesOnBesideReaders) {
  std::atomic<bool> stop = false;
  std::thread reader([&] {
    Connection c = connect();
    const Queue theirs = c.open("Q");
    while (!stop) {
      for (int i = 0; i < 20; ++i) EXPECT_EQ(theirs.put("x", kPutLater), kOk);
      EXPECT_EQ(c.commit(), kOk);
      theirs.drain();
    }
  });
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(mine.createQueue("TEMPORARY"), kOk);
    EXPECT_EQ(connect().deleteQueue("TEMPORARY"), kOk);
  }
  stop = true;
  reader.join();
}

} // namespace contract
