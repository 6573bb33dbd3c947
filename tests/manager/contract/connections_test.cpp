#include "tests/manager/contract/fixture.h"

#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

namespace contract {

class Connections : public Contract {};
FOR_EVERY_BINDING(Connections);

TEST_P(Connections, AnEmptyNameMakesTheFirstManagerAndItsDefault) {
  Connection first = connect(), second = connect("DEFAULT"), blank = connect("   ");
  ASSERT_EQ(first.codes, kOk);
  EXPECT_EQ(second.codes, kOk);
  EXPECT_EQ(blank.codes, kOk);
  EXPECT_NE(first.handle, second.handle);
  ASSERT_EQ(first.createQueue("Q"), kOk);
  ASSERT_EQ(first.open("Q").put("one"), kOk);
  EXPECT_EQ(second.open("Q").get().text, "one");
}

TEST_P(Connections, ProcessesThatMakeTheFirstManagerAtOnceFindTheSame) {
  Other one(GetParam()), two(GetParam()), three(GetParam());
  for (Other* each : {&one, &two, &three}) each->tell("connect");
  for (Other* each : {&one, &two, &three}) EXPECT_EQ(each->answer(), "0 0");
  ASSERT_EQ(connect().createQueue("Q"), kOk);
  one.words("put Q hello");
  EXPECT_EQ(two.ask("get Q"), "0 0 hello");
}

TEST_P(Connections, ManagersAreApart) {
  home->createManager("A/b%1");
  const std::string longest(48, 'M');
  home->createManager(longest);
  Connection a = connect("A/b%1"), b = connect(longest);
  ASSERT_EQ(a.codes, kOk);
  ASSERT_EQ(b.codes, kOk);
  EXPECT_EQ(a.createQueue("Q"), kOk);
  EXPECT_EQ(b.open("Q").codes, failed(BXRC_UNKNOWN_OBJECT));
  EXPECT_EQ(a.open("Q", Connection::kAll, "A/b%1").codes, kOk);
  EXPECT_EQ(a.open("Q", Connection::kAll, longest).codes, failed(BXRC_UNKNOWN_OBJECT_Q_MGR));
}

TEST_P(Connections, OtherNamesAreUnknown) {
  home->createManager(std::string(48, 'M'));
  for (const std::string& name :
       {std::string("NOBODY"), std::string(49, 'M'), std::string("a b"), std::string("../x"),
        std::string("caf\xc3\xa9"), std::string("default")}) {
    Connection none = connect(name);
    EXPECT_EQ(none.codes, failed(BXRC_Q_MGR_NAME_ERROR)) << name;
    EXPECT_EQ(none.handle, BXHC_UNUSABLE) << name;
  }
}

TEST_P(Connections, ABlankPaddedNameIsReadNoFurtherThanItsField) {
  home->createManager("PADDED");
  std::vector<char> field(BX_NAME_LENGTH, ' '); // a sanitizer sees a look behind it
  std::memcpy(field.data(), "PADDED", 6);
  BXHCONN handle = BXHC_UNUSABLE;
  Codes codes;
  api.BXCONN(field.data(), &handle, &codes.completion, &codes.reason);
  EXPECT_EQ(codes, kOk);
  api.BXDISC(&handle, &codes.completion, &codes.reason);
}

TEST_P(Connections, AManagerThatCannotBeOpenedIsNotAvailable) {
  home->createManager("BROKEN");
  home->breakManager("BROKEN");
  EXPECT_EQ(connect("BROKEN").codes, failed(BXRC_Q_MGR_NOT_AVAILABLE));
  EXPECT_EQ(connect().codes, failed(BXRC_Q_MGR_NAME_ERROR)) << "none is the default one";
}

TEST_P(Connections, HandlesEndWithDisconnectAndNeverComeFromNowhere) {
  Connection c = connect();
  ASSERT_EQ(c.createQueue("Q"), kOk);
  const BXHCONN ended = c.handle;
  const Queue q = c.open("Q");
  EXPECT_EQ(c.disconnect(), kOk);
  EXPECT_EQ(c.handle, BXHC_UNUSABLE);
  EXPECT_EQ(q.put("x"), failed(BXRC_HCONN_ERROR));
  Connection next = connect();
  for (const BXHCONN wrong : {ended, 0, BXHC_UNUSABLE, 123456}) {
    c.handle = wrong;
    EXPECT_EQ(c.commit(), failed(BXRC_HCONN_ERROR)) << wrong;
    EXPECT_EQ(c.open("Q").codes, failed(BXRC_HCONN_ERROR)) << wrong;
    EXPECT_EQ(c.disconnect(), failed(BXRC_HCONN_ERROR)) << wrong;
  }
  c.handle = BXHC_UNUSABLE;
}

TEST_P(Connections, AQueueHandleEndsWithCloseAndServesNoOtherConnection) {
  Connection c = connect(), stranger = connect();
  ASSERT_EQ(c.createQueue("Q"), kOk);
  ASSERT_EQ(c.createQueue("R"), kOk);
  Queue q = c.open("Q");
  Queue ended = q;
  EXPECT_EQ(q.close(), kOk);
  EXPECT_EQ(q.object, BXHO_UNUSABLE);
  const Queue next = c.open("R");
  ASSERT_EQ(stranger.open("R").codes, kOk);
  EXPECT_EQ(ended.put("to R?"), failed(BXRC_HOBJ_ERROR));
  EXPECT_EQ(ended.close(), failed(BXRC_HOBJ_ERROR));
  Queue lent = next;
  lent.connection = stranger.handle;
  EXPECT_EQ(lent.put("to whom?"), failed(BXRC_HOBJ_ERROR));
  for (const BXHOBJ wrong : {BXHOBJ{0}, BXHOBJ{-1}, BXHOBJ{99'999}}) {
    Queue nowhere{&api, c.handle, wrong};
    EXPECT_EQ(nowhere.get().codes, failed(BXRC_HOBJ_ERROR)) << wrong;
  }
}

TEST_P(Connections, EachOpenAllowsWhatItWasAskedFor) {
  Connection c = connect();
  const std::string longest(48, 'q');
  ASSERT_EQ(c.createQueue(longest), kOk);
  Queue in = c.open(longest, BXOO_INPUT_SHARED), see = c.open(longest, BXOO_BROWSE),
        out = c.open(longest, BXOO_OUTPUT | BXOO_FAIL_IF_QUIESCING);
  EXPECT_EQ(in.put("x"), failed(BXRC_NOT_OPEN_FOR_OUTPUT));
  EXPECT_EQ(out.put("x"), kOk);
  EXPECT_EQ(out.get().codes, failed(BXRC_NOT_OPEN_FOR_INPUT));
  EXPECT_EQ(in.browseFirst().codes, failed(BXRC_NOT_OPEN_FOR_BROWSE));
  EXPECT_EQ(in.underCursor().codes, failed(BXRC_NOT_OPEN_FOR_BROWSE));
  EXPECT_EQ(see.browseFirst().text, "x");
  EXPECT_EQ(see.underCursor().codes, failed(BXRC_NOT_OPEN_FOR_INPUT));
  EXPECT_EQ(in.get().text, "x");

  EXPECT_EQ(c.open("", BXOO_OUTPUT).codes, failed(BXRC_UNKNOWN_OBJECT));
  EXPECT_EQ(c.open(std::string(48, 'Q'), BXOO_OUTPUT).codes, failed(BXRC_UNKNOWN_OBJECT)) << "case";
  EXPECT_EQ(c.open("no-dash", BXOO_OUTPUT).codes, failed(BXRC_UNKNOWN_OBJECT));
}

TEST_P(Connections, AForkedChildConnectsAnew) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the thread sanitizer does not follow a fork";
#endif
  Connection parent = connect();
  ASSERT_EQ(parent.createQueue("Q"), kOk);
  const Queue q = parent.open("Q");
  ASSERT_EQ(q.put("kept by the parent"), kOk);
  ASSERT_EQ(q.put("for the child"), kOk);
  ASSERT_EQ(q.get(kTake).text, "kept by the parent");
  const pid_t child = ::fork();
  if (child == 0) {
    const bool handlesEnded = parent.commit() == failed(BXRC_HCONN_ERROR);
    Connection anew = connect();
    const bool got = anew.open("Q").get().text == "for the child";
    ::_exit(handlesEnded && got && anew.disconnect() == kOk ? 0 : 1);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(parent.backout(), kOk);
  EXPECT_THAT(q.drain(), testing::ElementsAre("kept by the parent"));
}

/// Its descriptor 2 would be the next file that is opened.
TEST_P(Connections, AProgramWithoutStandardErrorWritesIntoNoFileOfTheManager) {
  faults::Peer mute(std::getenv("BXM_HOME"), {{"LD_PRELOAD", GetParam().client}},
                    "/nowhere/at all");
  for (const char* words : {"connect", "create Q", "put Q x"}) mute.words(words);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(mute.ask("connect NOBODY"), "2 2058"); // and a line
  EXPECT_EQ(mute.ask("connect"), "0 0");
  EXPECT_EQ(mute.ask("get Q"), "0 0 x");
  EXPECT_EQ(connect().depth("Q"), 0);
}

TEST_P(Connections, TooManyAreRefusedAndLeaveTheOthersAlone) {
  std::vector<Connection> many;
  many.push_back(connect());
  ASSERT_EQ(many[0].createQueue("Q"), kOk);
  while (many.back().codes == kOk && many.size() < 20'000) many.push_back(connect());
  EXPECT_EQ(many.back().codes, failed(BXRC_MAX_CONNECTIONS));
  EXPECT_GT(many.size(), 1000U);
  EXPECT_EQ(many[0].open("Q").put("still here"), kOk);
  while (many.size() > 1) many.pop_back();
  EXPECT_EQ(connect().open("Q").get().text, "still here");
}

} // namespace contract
