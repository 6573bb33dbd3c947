#include "tests/manager/contract/fixture.h"

namespace contract {

using testing::ElementsAre;

class Browse : public OnQueue {};
FOR_EVERY_BINDING(Browse);

TEST_P(Browse, TakesNothingAndGoesOnInQueueOrder) {
  EXPECT_EQ(q.browseFirst().codes, failed(BXRC_NO_MESSAGE_AVAILABLE));
  for (const char* text : {"1", "2", "3"}) ASSERT_EQ(q.put(text), kOk);
  EXPECT_EQ(q.browseNext().text, "1") << "without a first, next begins at the head";
  EXPECT_EQ(q.browseNext().text, "2");
  ASSERT_EQ(q.put("urgent", {.priority = 9}), kOk);
  EXPECT_EQ(q.browseNext().text, "3") << "what came before the cursor is passed";
  EXPECT_EQ(q.browseNext().codes, failed(BXRC_NO_MESSAGE_AVAILABLE));
  ASSERT_EQ(q.put("4"), kOk);
  EXPECT_EQ(q.browseNext().text, "4");
  EXPECT_THAT(q.browse(), ElementsAre("urgent", "1", "2", "3", "4"));
  EXPECT_EQ(mine.depth("Q"), 5);
}

TEST_P(Browse, EachHandleHasItsCursor) {
  for (const char* text : {"1", "2"}) ASSERT_EQ(q.put(text), kOk);
  const Queue again = mine.open("Q");
  EXPECT_EQ(q.browseFirst().text, "1");
  EXPECT_EQ(q.browseNext().text, "2");
  EXPECT_EQ(again.browseNext().text, "1");
}

TEST_P(Browse, SeesCommittedMessagesThatNobodyHasTaken) {
  Connection other = connect();
  const Queue theirs = other.open("Q");
  for (const char* text : {"1", "2", "3"}) ASSERT_EQ(q.put(text), kOk);
  EXPECT_EQ(theirs.get(kTake).text, "1");
  EXPECT_EQ(theirs.put("4", kPutLater), kOk);
  EXPECT_THAT(q.browse(), ElementsAre("2", "3"));
  EXPECT_THAT(theirs.browse(), ElementsAre("2", "3"));
  EXPECT_EQ(other.backout(), kOk);
  EXPECT_THAT(q.browse(), ElementsAre("1", "2", "3"));
}

TEST_P(Browse, UnderCursorTakesTheMessageLastBrowsed) {
  for (const char* text : {"1", "2", "3"}) ASSERT_EQ(q.put(text), kOk);
  EXPECT_EQ(q.underCursor().codes, failed(BXRC_NO_MESSAGE_UNDER_CURSOR));
  q.browseFirst();
  q.browseNext();
  EXPECT_EQ(q.underCursor(kTake).text, "2");
  EXPECT_EQ(q.underCursor().codes, failed(BXRC_NO_MESSAGE_UNDER_CURSOR));
  EXPECT_EQ(q.browseNext().text, "3") << "the cursor stays where it was";
  EXPECT_EQ(mine.backout(), kOk);
  EXPECT_THAT(q.browse(), ElementsAre("1", "2", "3"));
  q.browseFirst();
  EXPECT_EQ(q.underCursor().text, "1");
  EXPECT_THAT(q.drain(), ElementsAre("2", "3"));
}

TEST_P(Browse, WhatSomebodyTookIsNoLongerUnderTheCursor) {
  Connection other = connect();
  const Queue theirs = other.open("Q");
  for (const char* text : {"1", "2"}) ASSERT_EQ(q.put(text), kOk);
  q.browseFirst();
  EXPECT_EQ(theirs.get(kTake).text, "1");
  EXPECT_EQ(q.underCursor().codes, failed(BXRC_NO_MESSAGE_UNDER_CURSOR));
  EXPECT_EQ(other.backout(), kOk);
  EXPECT_EQ(q.underCursor({.options = BXGMO_WAIT, .wait = 1000}).text, "1");
  EXPECT_EQ(q.underCursor({.options = BXGMO_WAIT, .wait = 60'000}).codes,
            failed(BXRC_NO_MESSAGE_UNDER_CURSOR));
}

TEST_P(Browse, UnderCursorMindsLengthAndIdentifiers) {
  ASSERT_EQ(q.put("0123456789", {.messageId = "m"}), kOk);
  q.browseFirst();
  EXPECT_EQ(q.underCursor({.room = 3}).codes, failed(BXRC_TRUNCATED_FAILED));
  EXPECT_EQ(q.underCursor({.messageId = "other"}).codes, failed(BXRC_NO_MESSAGE_UNDER_CURSOR));
  EXPECT_EQ(q.underCursor({.messageId = "m"}).text, "0123456789");
}

TEST_P(Browse, TruncationMovesTheCursorOnlyWhenItIsAccepted) {
  for (const char* text : {"first", "second"}) ASSERT_EQ(q.put(text), kOk);
  EXPECT_EQ(q.get({.options = BXGMO_BROWSE_FIRST, .room = 2}).codes, failed(BXRC_TRUNCATED_FAILED));
  const Message cut =
      q.get({.options = BXGMO_BROWSE_NEXT | BXGMO_ACCEPT_TRUNCATED_MESSAGE, .room = 2});
  EXPECT_EQ(cut.codes, warning(BXRC_TRUNCATED_ACCEPTED));
  EXPECT_EQ(cut.text, "fi");
  EXPECT_EQ(q.browseNext().text, "second");
}

} // namespace contract
