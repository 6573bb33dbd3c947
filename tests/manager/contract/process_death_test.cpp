#include "tests/manager/contract/fixture.h"

#include <chrono>
#include <random>
#include <thread>

namespace contract {

using testing::ElementsAre;
using testing::IsEmpty;

/// The fault in all of these is the death of a process by SIGKILL. Nobody connects anew afterwards:
/// what the dead left is found by those who were there, within some milliseconds.
class ProcessDeath : public OnQueue {
protected:
  static void kill(Other& dying) {
    dying.kill();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
};
FOR_EVERY_BINDING(ProcessDeath);

TEST_P(ProcessDeath, PutsEverythingBackAtItsOldPlace) {
  for (const std::string& text : numbered("m", 4)) ASSERT_EQ(q.put(text), kOk);
  Other dying = other();
  ASSERT_EQ(dying.ask("take Q 2"), "2");
  ASSERT_EQ(dying.tell("put Q never later"), kOk);
  EXPECT_EQ(q.get(kTake).text, "m-2");
  EXPECT_EQ(q.get(kTake).text, "m-3");
  EXPECT_EQ(q.get().codes, failed(BXRC_NO_MESSAGE_AVAILABLE));
  kill(dying);
  EXPECT_EQ(q.get(kTake).text, "m-0");
  EXPECT_EQ(mine.backout(), kOk);
  EXPECT_EQ(q.drain(), numbered("m", 4));
  EXPECT_EQ(mine.depth("Q"), 0);
}

TEST_P(ProcessDeath, IsSeenByABrowse) {
  ASSERT_EQ(q.put("1"), kOk);
  ASSERT_EQ(q.put("2"), kOk);
  Other dying = other();
  ASSERT_EQ(dying.ask("take Q 1"), "1");
  EXPECT_THAT(q.browse(), ElementsAre("2"));
  kill(dying);
  EXPECT_THAT(q.browse(), ElementsAre("1", "2"));
}

TEST_P(ProcessDeath, FreesThePlacesOfUncommittedPuts) {
  ASSERT_EQ(mine.createQueue("FULL", {{BXIA_MAX_DEPTH, 1}}), kOk);
  const Queue full = mine.open("FULL");
  Other dying = other();
  ASSERT_EQ(dying.tell("put FULL never later"), kOk);
  EXPECT_EQ(full.put("1"), failed(BXRC_Q_FULL));
  kill(dying);
  EXPECT_EQ(full.put("1"), kOk);

  Other next = other();
  ASSERT_EQ(next.tell("put Q never later"), kOk);
  EXPECT_EQ(mine.depth("Q"), 1);
  kill(next);
  EXPECT_EQ(mine.depth("Q"), 0);
  EXPECT_EQ(mine.deleteQueue("Q"), kOk);
}

TEST_P(ProcessDeath, LosesNothingThatWasCommitted) {
  ASSERT_EQ(mine.createQueue("R"), kOk);
  const Queue r = mine.open("R");
  for (const std::string& text : numbered("m", 3000)) ASSERT_EQ(q.put(text, kPutLater), kOk);
  ASSERT_EQ(mine.commit(), kOk);
  Other dying = other();
  ASSERT_EQ(dying.ask("write R w 10 5"), "0 0 10");
  ASSERT_EQ(dying.ask("take Q 10"), "10");
  ASSERT_EQ(dying.tell("commit"), kOk);
  ASSERT_EQ(dying.tell("get Q 0"), kOk);
  ASSERT_EQ(dying.ask("take Q 1500"), "1500"); // more than are tidied up one by one
  ASSERT_EQ(dying.tell("commit"), kOk);
  kill(dying);
  EXPECT_EQ(r.drain(), numbered("w", 10));
  EXPECT_EQ(q.get().text, "m-1511") << "gets count at once";
  EXPECT_EQ(mine.depth("Q"), 3000 - 1512);
}

TEST_P(ProcessDeath, AfterAnyNumberOfGetsGivesThemAllBack) {
  ASSERT_EQ(mine.createQueue("MANY", {{BXIA_MAX_DEPTH, 100'000}}), kOk);
  const Queue many = mine.open("MANY");
  for (int i = 0; i < 70'000; ++i)
    ASSERT_EQ(many.put("m", {.options = BXPMO_SYNCPOINT, .priority = i % 10}), kOk);
  ASSERT_EQ(mine.commit(), kOk);
  Other dying = other();
  ASSERT_EQ(dying.ask("take MANY 70000"), "70000");
  EXPECT_EQ(many.get().codes, failed(BXRC_NO_MESSAGE_AVAILABLE));
  kill(dying);
  for (int i = 0; i < 70'000; ++i)
    ASSERT_EQ(many.get({.options = BXGMO_SYNCPOINT, .room = 4}).descriptor.priority, 9 - i / 7000);
  EXPECT_EQ(mine.commit(), kOk);
}

/// Processes move messages from one queue to another, each unit of work a few, and are killed at
/// any moment: every message arrives, and none twice.
TEST_P(ProcessDeath, AtAnyMomentMovesAMessageOnceOrNotAtAll) {
  constexpr int kMessages = 4000;
  ASSERT_EQ(mine.createQueue("R"), kOk);
  const Queue r = mine.open("R");
  for (const std::string& text : numbered("m", kMessages)) ASSERT_EQ(q.put(text, kPutLater), kOk);
  ASSERT_EQ(mine.commit(), kOk);
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  int kills = 0;
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (mine.depth("R") < kMessages && std::chrono::steady_clock::now() < limit) {
    Other one = other(), two = other();
    one.send("move Q R");
    two.send("move Q R");
    std::this_thread::sleep_for(std::chrono::milliseconds(20 + random() % 60));
    one.kill();
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 10));
    kill(two);
    kills += 2;
  }
  EXPECT_GT(kills, 4);
  EXPECT_THAT(q.drain(), IsEmpty());
  EXPECT_THAT(r.drain(), testing::UnorderedElementsAreArray(numbered("m", kMessages)));
}

} // namespace contract
