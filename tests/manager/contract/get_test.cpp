#include "tests/manager/contract/fixture.h"

#include <chrono>
#include <cstring>
#include <thread>

namespace contract {

using testing::ElementsAre;
using testing::IsEmpty;

class Get : public OnQueue {};
FOR_EVERY_BINDING(Get);

TEST_P(Get, ABufferThatIsTooSmallLeavesTheMessageUnlessTruncationIsAccepted) {
  ASSERT_EQ(q.put("0123456789"), kOk);
  Message m = q.get({.room = 4});
  EXPECT_EQ(m.codes, failed(BXRC_TRUNCATED_FAILED));
  EXPECT_EQ(m.length, 10);
  EXPECT_EQ(m.text, "0123");
  EXPECT_EQ(q.get({.room = 0}).codes, failed(BXRC_TRUNCATED_FAILED));
  m = q.get({.options = BXGMO_ACCEPT_TRUNCATED_MESSAGE, .room = 4});
  EXPECT_EQ(m.codes, warning(BXRC_TRUNCATED_ACCEPTED));
  EXPECT_EQ(m.length, 10);
  EXPECT_EQ(m.text, "0123");
  EXPECT_EQ(q.get().codes, failed(BXRC_NO_MESSAGE_AVAILABLE));
  ASSERT_EQ(q.put("0123"), kOk);
  EXPECT_EQ(q.get({.options = BXGMO_ACCEPT_TRUNCATED_MESSAGE, .room = 4}).codes, kOk);
}

TEST_P(Get, IdentifiersChooseAMessage) {
  ASSERT_EQ(q.put("1", {.messageId = "m1", .correlationId = "a"}), kOk);
  ASSERT_EQ(q.put("2", {.messageId = "m2", .correlationId = "b"}), kOk);
  ASSERT_EQ(q.put("3", {.messageId = "m1", .correlationId = "b"}), kOk);
  EXPECT_EQ(q.get({.messageId = "m1", .correlationId = "b"}).text, "3");
  EXPECT_EQ(q.get({.messageId = "m1", .correlationId = "c"}).codes,
            failed(BXRC_NO_MESSAGE_AVAILABLE));
  EXPECT_EQ(q.get({.correlationId = "b"}).text, "2");
  EXPECT_EQ(q.get().text, "1");
}

TEST_P(Get, MatchOptionsSayWhichIdentifiersCount) {
  auto get = [this](BXLONG version, BXLONG matchOptions, BXMD descriptor) {
    BXGMO options = BXGMO_DEFAULT;
    options.version = version;
    options.matchOptions = matchOptions;
    char buffer[8];
    BXLONG length = 0;
    Codes codes;
    api.BXGET(q.connection, q.object, &descriptor, &options, sizeof buffer, buffer, &length,
              &codes.completion, &codes.reason);
    return codes;
  };
  BXMD wanted = BXMD_DEFAULT;
  std::memcpy(wanted.messageId, "other", 5);
  std::memcpy(wanted.correlationId, "a", 1);
  const PutHow put{.messageId = "m", .correlationId = "a"};
  ASSERT_EQ(q.put("x", put), kOk);
  EXPECT_EQ(get(BXGMO_VERSION_2, BXMO_MATCH_MESSAGE_ID, wanted), failed(BXRC_NO_MESSAGE_AVAILABLE));
  EXPECT_EQ(get(BXGMO_VERSION_1, BXMO_NONE, wanted), failed(BXRC_NO_MESSAGE_AVAILABLE));
  EXPECT_EQ(get(BXGMO_VERSION_2, BXMO_MATCH_CORRELATION_ID, wanted), kOk);
  ASSERT_EQ(q.put("x", put), kOk);
  EXPECT_EQ(get(BXGMO_VERSION_2, BXMO_NONE, wanted), kOk);
}

TEST_P(Get, ExpiredMessagesAreGone) {
  ASSERT_EQ(q.put("short", {.expiry = 5}), kOk);
  ASSERT_EQ(q.put("long", {.expiry = 1000}), kOk);
  ASSERT_EQ(mine.createQueue("FULL", {{BXIA_MAX_DEPTH, 1}}), kOk);
  const Queue full = mine.open("FULL");
  ASSERT_EQ(full.put("short", {.expiry = 5}), kOk);
  const Message m = q.browseFirst();
  EXPECT_EQ(m.text, "short");
  EXPECT_GT(m.descriptor.expiry, 0);
  EXPECT_LE(m.descriptor.expiry, 5);
  std::this_thread::sleep_for(std::chrono::milliseconds(520));
  EXPECT_EQ(full.put("in its place"), kOk);
  EXPECT_EQ(q.browseFirst().text, "long");
  EXPECT_LT(q.browseFirst().descriptor.expiry, 1000);
  EXPECT_EQ(q.get().text, "long");
  EXPECT_EQ(q.get().codes, failed(BXRC_NO_MESSAGE_AVAILABLE));
  EXPECT_EQ(mine.depth("Q"), 0);
}

TEST_P(Get, AMessageTakenByOneIsNobodyElses) {
  Connection other = connect();
  const Queue theirs = other.open("Q");
  for (const char* text : {"1", "2", "3"}) ASSERT_EQ(q.put(text), kOk);
  EXPECT_EQ(q.get(kTake).text, "1");
  EXPECT_EQ(theirs.get(kTake).text, "2");
  EXPECT_EQ(q.get(kTake).text, "3");
  EXPECT_EQ(theirs.get().codes, failed(BXRC_NO_MESSAGE_AVAILABLE));
  EXPECT_EQ(mine.backout(), kOk);
  EXPECT_EQ(other.commit(), kOk);
  EXPECT_THAT(theirs.drain(), ElementsAre("1", "3"));
  EXPECT_THAT(q.drain(), IsEmpty());
}

/// Where scans begin is remembered; what comes back must be found below it.
TEST_P(Get, WhatComesBackIsFoundAtItsOldPlace) {
  Connection other = connect();
  const Queue theirs = other.open("Q");
  for (const std::string& text : numbered("m", 100)) ASSERT_EQ(q.put(text), kOk);
  for (int i = 0; i < 50; ++i) ASSERT_EQ(q.get(kTake).codes, kOk);
  for (int i = 0; i < 25; ++i) ASSERT_EQ(theirs.get(kTake).codes, kOk);
  EXPECT_EQ(theirs.get().text, "m-75");
  EXPECT_EQ(mine.backout(), kOk);
  EXPECT_EQ(theirs.browseFirst().text, "m-0");
  EXPECT_EQ(theirs.get().text, "m-0");
  EXPECT_EQ(other.backout(), kOk);
  std::vector<std::string> left = numbered("m", 100);
  left.erase(left.begin() + 75);
  left.erase(left.begin());
  EXPECT_EQ(theirs.get(kTake).text, left[0]);
  EXPECT_EQ(q.get(kTake).text, left[1]);
  EXPECT_EQ(other.backout(), kOk);
  ASSERT_EQ(q.put("first", {.priority = 9}), kOk);
  EXPECT_EQ(q.get(kTake).text, "first") << "and behind others that a scan finds before it";
  EXPECT_EQ(q.get(kTake).text, left[0]);
  EXPECT_EQ(mine.backout(), kOk);
  EXPECT_EQ(q.get().text, "first");
  EXPECT_EQ(q.drain(), left);
}

} // namespace contract
