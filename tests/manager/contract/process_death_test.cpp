#include "tests/manager/contract/fixture.h"

#include <chrono>
#include <thread>

namespace contract {

using testing::ElementsAre;

/// The fault in all of these is the death of a process by SIGKILL. Nobody connects anew afterwards:
/// what the dead left is found by those who were there, within some milliseconds.
class ProcessDeath : public OnQueue {
protected:
  /// Another process does this, and dies.
  void dieAfter(std::initializer_list<const char*> all) {
    const auto dying = other();
    for (const char* words : all) dying->words(words);
    before();
    dying->kill();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  std::function<void()> before = [] {};
};
FOR_EVERY_BINDING(ProcessDeath);

TEST_P(ProcessDeath, PutsEverythingBackAtItsOldPlaceAndFreesThePlacesOfUncommittedPuts) {
  ASSERT_EQ(mine.createQueue("FULL", {{BXIA_MAX_DEPTH, 1}}), kOk);
  const Queue full = mine.open("FULL");
  for (const std::string& text : numbered("m", 4)) ASSERT_EQ(q.put(text), kOk);
  before = [&] {
    EXPECT_EQ(full.put("1"), failed(BXRC_Q_FULL));
    EXPECT_EQ(mine.depth("Q"), 5);
    EXPECT_THAT(q.browse(), ElementsAre("m-2", "m-3"));
    EXPECT_EQ(q.get(kTake).text, "m-2");
    EXPECT_EQ(q.get(kTake).text, "m-3");
    EXPECT_EQ(q.get().codes, failed(BXRC_NO_MESSAGE_AVAILABLE));
  };
  dieAfter({"sgetn Q 2", "sput Q never", "sput FULL never"});
  EXPECT_EQ(full.put("1"), kOk);
  EXPECT_THAT(q.browse(), ElementsAre("m-0", "m-1"));
  EXPECT_EQ(q.get(kTake).text, "m-0");
  EXPECT_EQ(mine.backout(), kOk);
  EXPECT_EQ(q.drain(), numbered("m", 4));
  EXPECT_EQ(mine.depth("Q"), 0);
  EXPECT_EQ(mine.deleteQueue("Q"), kOk);
}

TEST_P(ProcessDeath, LosesNothingThatWasCommitted) {
  ASSERT_EQ(mine.createQueue("R"), kOk);
  for (const std::string& text : numbered("m", 3000)) ASSERT_EQ(q.put(text, kPutLater), kOk);
  ASSERT_EQ(mine.commit(), kOk);
  dieAfter({"sputn R w 2", "commit", "sgetn Q 10", "commit", "get Q",
            "sgetn Q 1500", // more than are tidied up one by one
            "commit"});
  EXPECT_THAT(mine.open("R").drain(), ElementsAre("w0", "w1"));
  EXPECT_EQ(q.get().text, "m-1511") << "gets count at once";
  EXPECT_EQ(mine.depth("Q"), 3000 - 1512);
}

TEST_P(ProcessDeath, AfterAnyNumberOfGetsGivesThemAllBack) {
  ASSERT_EQ(mine.createQueue("MANY", {{BXIA_MAX_DEPTH, 100'000}}), kOk);
  const Queue many = mine.open("MANY");
  for (int i = 0; i < 70'000; ++i)
    ASSERT_EQ(many.put("m", {.options = BXPMO_SYNCPOINT, .priority = i % 10}), kOk);
  ASSERT_EQ(mine.commit(), kOk);
  before = [&] { EXPECT_EQ(many.get().codes, failed(BXRC_NO_MESSAGE_AVAILABLE)); };
  dieAfter({"sgetn MANY 70000"});
  for (int i = 0; i < 70'000; ++i)
    ASSERT_EQ(many.get({.options = BXGMO_SYNCPOINT, .room = 4}).descriptor.priority, 9 - i / 7000);
  EXPECT_EQ(mine.commit(), kOk);
}

} // namespace contract
