#include "tests/manager/contract/fixture.h"

namespace contract {

using testing::ElementsAre;
using testing::IsEmpty;

class UnitOfWork : public OnQueue {};
FOR_EVERY_BINDING(UnitOfWork);

TEST_P(UnitOfWork, CountsAsAWholeOverSeveralQueues) {
  ASSERT_EQ(mine.createQueue("R"), kOk);
  const Queue r = mine.open("R");
  Connection other = connect();
  const Queue theirQ = other.open("Q"), theirR = other.open("R");
  ASSERT_EQ(q.put("moved"), kOk);
  EXPECT_EQ(q.get(kTake).text, "moved");
  EXPECT_EQ(r.put("moved", kPutLater), kOk);
  EXPECT_EQ(r.get().codes, failed(BXRC_NO_MESSAGE_AVAILABLE)) << "not even its own";
  EXPECT_THAT(theirR.browse(), IsEmpty());
  EXPECT_EQ(other.depth("Q"), 1);
  EXPECT_EQ(other.depth("R"), 1);
  EXPECT_EQ(mine.backout(), kOk);
  EXPECT_EQ(other.depth("R"), 0);
  EXPECT_EQ(q.get(kTake).text, "moved");
  EXPECT_EQ(r.put("moved", kPutLater), kOk);
  EXPECT_EQ(mine.commit(), kOk);
  EXPECT_EQ(mine.backout(), kOk) << "what was committed stays";
  EXPECT_EQ(mine.commit(), kOk) << "an empty unit of work is as good as any";
  EXPECT_THAT(theirQ.browse(), IsEmpty());
  EXPECT_THAT(theirR.drain(), ElementsAre("moved"));
}

TEST_P(UnitOfWork, WorkOutsideOfItCountsAtOnce) {
  for (const char* text : {"1", "2", "3", "4"}) ASSERT_EQ(q.put(text), kOk);
  EXPECT_EQ(q.get(kTake).text, "1");
  EXPECT_EQ(q.get().text, "2");
  EXPECT_EQ(q.put("5", kPutLater), kOk);
  EXPECT_EQ(q.put("6"), kOk);
  EXPECT_EQ(q.get(kTake).text, "3");
  EXPECT_EQ(mine.depth("Q"), 5);
  EXPECT_EQ(mine.backout(), kOk);
  EXPECT_EQ(mine.depth("Q"), 4);
  EXPECT_THAT(q.drain(), ElementsAre("1", "3", "4", "6"));
}

TEST_P(UnitOfWork, OutlivesTheHandlesAndEndsWithTheConnection) {
  ASSERT_EQ(q.put("old"), kOk);
  {
    Connection other = connect();
    Queue theirs = other.open("Q");
    EXPECT_EQ(theirs.get(kTake).text, "old");
    EXPECT_EQ(theirs.put("new", kPutLater), kOk);
    EXPECT_EQ(theirs.close(), kOk);
    EXPECT_THAT(q.browse(), IsEmpty());
    EXPECT_EQ(other.disconnect(), kOk);
  }
  EXPECT_THAT(q.drain(), ElementsAre("new"));
}

/// Larger than what a process keeps in memory, with one message that is larger by itself.
TEST_P(UnitOfWork, MayBeLargerThanMemoryIsToBeUsed) {
  ASSERT_EQ(mine.createQueue("BIG", {{BXIA_MAX_MESSAGE_LENGTH, 10'000'000}}), kOk);
  const Queue big = mine.open("BIG");
  auto textOf = [](int i) {
    return std::string(i == 100 ? 9'000'000 : 100'000, static_cast<char>('a' + i % 26));
  };
  for (const bool first : {true, false}) {
    for (int i = 0; i < 250; ++i) ASSERT_EQ(big.put(textOf(i), kPutLater), kOk);
    EXPECT_EQ(big.get().codes, failed(BXRC_NO_MESSAGE_AVAILABLE));
    EXPECT_EQ(first ? mine.backout() : mine.commit(), kOk);
    EXPECT_EQ(mine.depth("BIG"), first ? 0 : 250);
  }
  for (int i = 0; i < 250; ++i) {
    const std::string text = textOf(i);
    const GetHow take{.options = BXGMO_SYNCPOINT, .room = text.size()};
    ASSERT_TRUE(big.get(take).text == text) << i;
  }
  EXPECT_EQ(mine.commit(), kOk);
  EXPECT_EQ(mine.depth("BIG"), 0);
}

TEST_P(UnitOfWork, MayTakeAnyNumberOfMessages) {
  constexpr int kMany = 200'000;
  ASSERT_EQ(mine.createQueue("MANY", {{BXIA_MAX_DEPTH, 1'000'000}}), kOk);
  const Queue many = mine.open("MANY");
  Connection other = connect();
  const Queue theirs = other.open("MANY");
  for (int i = 0; i < kMany; ++i)
    ASSERT_EQ(many.put(std::to_string(i), {.options = BXPMO_SYNCPOINT, .priority = 0}), kOk);
  ASSERT_EQ(mine.commit(), kOk);
  const GetHow take{.options = BXGMO_SYNCPOINT, .room = 16};
  auto takeAll = [&](int from) {
    for (int i = from; i < kMany; ++i) ASSERT_EQ(many.get(take).text, std::to_string(i));
  };
  takeAll(0);
  EXPECT_EQ(theirs.get().codes, failed(BXRC_NO_MESSAGE_AVAILABLE));
  EXPECT_EQ(mine.backout(), kOk);
  EXPECT_EQ(other.depth("MANY"), kMany);
  EXPECT_EQ(theirs.get(kTake).text, "0");
  takeAll(1);
  EXPECT_EQ(mine.commit(), kOk);
  EXPECT_EQ(mine.backout(), kOk);
  EXPECT_EQ(other.depth("MANY"), 1);
  EXPECT_EQ(other.backout(), kOk);
  EXPECT_THAT(theirs.drain(), ElementsAre("0")) << "held long after those that came behind it";
}

} // namespace contract
