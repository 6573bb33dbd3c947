#include "tests/manager/contract/fixture.h"

#include <cstring>

namespace contract {

using testing::ElementsAre;

class Put : public OnQueue {};
FOR_EVERY_BINDING(Put);

TEST_P(Put, PrioritiesAreGotHighestFirstAndInOrderWithin) {
  EXPECT_EQ(q.put("low 1", {.priority = 0}), kOk);
  EXPECT_EQ(q.put("high 1", {.priority = 9}), kOk);
  EXPECT_EQ(q.put("default", {.priority = BXPRI_AS_Q_DEF}), kOk);
  EXPECT_EQ(q.put("middle", {.priority = 5}), kOk);
  EXPECT_EQ(q.put("too high", {.priority = 10}), warning(BXRC_PRIORITY_EXCEEDS_MAXIMUM));
  const std::vector<std::string> order = {"high 1", "too high", "middle", "low 1", "default"};
  EXPECT_EQ(q.browse(), order);
  EXPECT_EQ(q.browseFirst().descriptor.priority, 9);
  EXPECT_EQ(q.drain(), order);
}

TEST_P(Put, MessagesOfAUnitOfWorkStandWhereItsCommitCame) {
  Connection other = connect();
  const Queue theirs = other.open("Q");
  EXPECT_EQ(q.put("mine 1", kPutLater), kOk);
  EXPECT_EQ(theirs.put("theirs 1", kPutLater), kOk);
  EXPECT_EQ(q.put("mine 2", kPutLater), kOk);
  EXPECT_EQ(q.put("at once"), kOk);
  EXPECT_EQ(other.commit(), kOk);
  EXPECT_EQ(mine.commit(), kOk);
  EXPECT_THAT(q.drain(), ElementsAre("at once", "theirs 1", "mine 1", "mine 2"));
}

TEST_P(Put, IdentifiersAndTimesAreMade) {
  BXMD first = BXMD_DEFAULT, second = BXMD_DEFAULT, given = BXMD_DEFAULT;
  std::memcpy(given.messageId, "my own identifier", 17);
  ASSERT_EQ(q.put(first, "1"), kOk);
  ASSERT_EQ(q.put(second, "2"), kOk);
  ASSERT_EQ(q.put(given, "3"), kOk);
  EXPECT_NE(std::memcmp(first.messageId, second.messageId, BX_IDENTIFIER_LENGTH), 0);
  EXPECT_STREQ(reinterpret_cast<char*>(given.messageId), "my own identifier");
  EXPECT_EQ(first.priority, 0);
  for (const BXMD& put : {first, second, given}) {
    const BXMD got = q.get().descriptor;
    EXPECT_EQ(std::memcmp(got.messageId, put.messageId, BX_IDENTIFIER_LENGTH), 0);
    EXPECT_EQ(std::memcmp(got.putDate, put.putDate, 8), 0);
    EXPECT_EQ(std::memcmp(got.putTime, put.putTime, 8), 0);
    EXPECT_THAT(std::string(got.putDate, 8), testing::MatchesRegex("2[0-9]+"));
    EXPECT_THAT(std::string(got.putTime, 8), testing::MatchesRegex("[0-9]+"));
    EXPECT_EQ(got.characterSet, BXCS_UTF8);
    EXPECT_EQ(got.persistence, BXPER_PERSISTENT) << "the queue's default";
    EXPECT_EQ(got.expiry, BXEI_UNLIMITED);
    EXPECT_EQ(got.backoutCount, 0);
  }
}

/// Each of these is stored in its own way.
TEST_P(Put, TheDescriptorIsKept) {
  BXMD put = BXMD_DEFAULT;
  put.persistence = BXPER_PERSISTENT;
  for (void (*change)(BXMD&) : std::initializer_list<void (*)(BXMD&)>{
           [](BXMD& d) { std::memset(d.correlationId, 0xC0, sizeof d.correlationId); },
           [](BXMD& d) { std::memcpy(d.format, BXFMT_STRING, sizeof d.format); },
           [](BXMD& d) { std::memcpy(d.format, "MYFORMAT", sizeof d.format); },
           [](BXMD& d) { d.persistence = BXPER_NOT_PERSISTENT; },
           [](BXMD& d) { d.version = BXMD_VERSION_2, d.sequenceNumber = 4; },
           [](BXMD& d) { std::memset(d.groupId, 0x60, sizeof d.groupId), d.originalLength = 99; },
           [](BXMD& d) { d.report = 7, d.messageType = 1, d.feedback = 11, d.encoding = 273; },
           [](BXMD& d) { std::memset(d.replyToQueue, 'r', sizeof d.replyToQueue); },
           [](BXMD& d) { std::memset(d.accountingToken, 0xA0, sizeof d.accountingToken); },
           [](BXMD& d) { d.characterSet = 819, d.backoutCount = 3; }}) { // which nobody can give
    change(put);
    ASSERT_EQ(q.put(put, "x"), kOk);
    BXMD got = q.get().descriptor, expected = put;
    expected.backoutCount = 0;
    expected.version = got.version; // says how much of it there is
    if (expected.characterSet == BXCS_Q_MGR) expected.characterSet = BXCS_UTF8;
    EXPECT_EQ(std::memcmp(&got, &expected, sizeof got), 0);
  }
}

TEST_P(Put, WhatIsBehindAStructureOfAnEarlierVersionIsNotTouched) {
  BXMD put = BXMD_DEFAULT;
  std::memset(put.groupId, 0x77, sizeof put.groupId);
  put.offset = 77;
  const BXMD given = put;
  ASSERT_EQ(q.put(put, "v1"), kOk);
  EXPECT_EQ(std::memcmp(put.groupId, given.groupId, sizeof put - offsetof(BXMD, groupId)), 0);
  const BXMD got = q.browseFirst().descriptor;
  EXPECT_EQ(got.groupId[0], 0) << "what lay behind the descriptor is no part of it";
  EXPECT_EQ(got.offset, 0);
  BXGMO options = BXGMO_DEFAULT; // of version 1, too
  options.returnedLength = 88;
  BXLONG length = 0;
  Codes codes;
  put = given;
  for (const BXLONG version : {BXGMO_VERSION_2, BXGMO_VERSION_1}) {
    options.version = version;
    api.BXGET(q.connection, q.object, &put, &options, 0, nullptr, &length, &codes.completion,
              &codes.reason);
    EXPECT_EQ(length, 2);
    EXPECT_EQ(options.returnedLength, 88);
    EXPECT_EQ(std::memcmp(put.groupId, given.groupId, sizeof put - offsetof(BXMD, groupId)), 0);
  }
}

TEST_P(Put, LengthsHaveTheirLimits) {
  ASSERT_EQ(mine.createQueue("SMALL", {{BXIA_MAX_MESSAGE_LENGTH, 10}}), kOk);
  ASSERT_EQ(mine.createQueue("LARGE", {{BXIA_MAX_MESSAGE_LENGTH, 104'857'600}}), kOk);
  const Queue small = mine.open("SMALL"), large = mine.open("LARGE");
  EXPECT_EQ(small.put("0123456789"), kOk);
  EXPECT_EQ(small.put("0123456789+"), failed(BXRC_MESSAGE_TOO_BIG_FOR_Q));
  std::string huge(104'857'600, 'h');
  huge.back() = '!';
  EXPECT_EQ(large.put(huge), kOk);
  EXPECT_EQ(q.put(huge), failed(BXRC_MESSAGE_TOO_BIG_FOR_Q));
  EXPECT_EQ(large.put(huge + '+'), failed(BXRC_MESSAGE_TOO_BIG_FOR_Q_MGR));
  EXPECT_TRUE(large.get({.room = huge.size()}).text == huge);
}

TEST_P(Put, AFullQueueTakesNoMoreUncommittedPutsCounted) {
  ASSERT_EQ(mine.createQueue("FULL", {{BXIA_MAX_DEPTH, 3}}), kOk);
  Connection other = connect();
  const Queue full = mine.open("FULL"), theirs = other.open("FULL");
  EXPECT_EQ(full.put("1"), kOk);
  EXPECT_EQ(theirs.put("2", kPutLater), kOk);
  EXPECT_EQ(full.put("3", kPutLater), kOk);
  EXPECT_EQ(full.put("4"), failed(BXRC_Q_FULL));
  EXPECT_EQ(mine.depth("FULL"), 3);
  EXPECT_EQ(full.get(kTake).text, "1");
  EXPECT_EQ(theirs.put("4"), failed(BXRC_Q_FULL)) << "the get may yet be backed out";
  EXPECT_EQ(other.backout(), kOk);
  EXPECT_EQ(mine.commit(), kOk);
  EXPECT_EQ(mine.depth("FULL"), 1);
  EXPECT_EQ(theirs.put("4"), kOk);
  EXPECT_EQ(theirs.put("5"), kOk);
  EXPECT_EQ(theirs.put("6"), failed(BXRC_Q_FULL));
  EXPECT_THAT(full.drain(), ElementsAre("3", "4", "5"));

  ASSERT_EQ(mine.createQueue("NOTHING", {{BXIA_MAX_DEPTH, 0}}), kOk);
  EXPECT_EQ(mine.open("NOTHING").put("1"), failed(BXRC_Q_FULL));
}

} // namespace contract
