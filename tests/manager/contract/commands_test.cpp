#include "tests/manager/contract/fixture.h"

#include <ctime>

namespace contract {

class Commands : public Contract {
protected:
  Connection mine = connect();

  Answer run(BXLONG command, const std::function<void(Bag&)>& fill) {
    Bag arguments(api);
    fill(arguments);
    return mine.command(command, arguments);
  }
  /// The command's own reason for refusing.
  BXLONG refusal(BXLONG command, const std::function<void(Bag&)>& fill) {
    const Answer answer = run(command, fill);
    EXPECT_EQ(answer.codes, failed(BXRC_COMMAND_FAILED));
    EXPECT_EQ(answer.own.completion, BXCC_FAILED);
    return answer.own.reason;
  }
};
FOR_EVERY_BINDING(Commands);

TEST_P(Commands, AQueueIsWhatItWasMade) {
  const std::time_t before = std::time(nullptr);
  const Answer made = run(BXCMD_CREATE_QUEUE, [](Bag& bag) {
    bag.add(BXCA_QUEUE_NAME, "A.b_c/d%").add(BXIA_QUEUE_TYPE, BXQT_LOCAL);
    bag.add(BXIA_MAX_DEPTH, 999'999'999).add(BXIA_MAX_MESSAGE_LENGTH, 1);
    bag.add(BXIA_DEFAULT_PERSISTENCE, 0).add(BXCA_CLUSTER_NAME, "CLUSTER");
    bag.add(BXIA_DEFAULT_PRIORITY, 9).add(BXIA_INHIBIT_GET, BXPO_YES);
  });
  EXPECT_EQ(made.codes, kOk);
  EXPECT_EQ(made.own, kOk);
  const Answer answer = mine.inquire("A.b_c/d%");
  const std::time_t after = std::time(nullptr);
  EXPECT_EQ(answer.codes, kOk);
  EXPECT_EQ(answer.own, kOk);
  EXPECT_EQ(answer.numbers, (std::map<BXLONG, BXLONG>{{BXIA_CURRENT_DEPTH, 0},
                                                      {BXIA_DEFAULT_PERSISTENCE, 0},
                                                      {BXIA_DEFAULT_PRIORITY, 9},
                                                      {BXIA_INHIBIT_GET, BXPO_YES},
                                                      {BXIA_INHIBIT_PUT, BXPO_NO},
                                                      {BXIA_MAX_MESSAGE_LENGTH, 1},
                                                      {BXIA_MAX_DEPTH, 999'999'999},
                                                      {BXIA_QUEUE_TYPE, BXQT_LOCAL}}));
  auto padded = [](std::string text, std::size_t width) { return text.resize(width, ' '), text; };
  EXPECT_EQ(answer.texts.at(BXCA_QUEUE_NAME), padded("A.b_c/d%", 48));
  EXPECT_EQ(answer.texts.at(BXCA_CLUSTER_NAME), padded("CLUSTER", 48));
  EXPECT_EQ(answer.texts.at(BXCA_MANAGER_NAME), "");
  auto local = [](std::time_t time, const char* format) {
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, format, std::localtime(&time)));
  };
  using testing::AnyOf;
  for (const BXLONG date : {BXCA_CREATION_DATE, BXCA_ALTERATION_DATE})
    EXPECT_THAT(answer.texts.at(date),
                AnyOf(local(before, "%Y-%m-%d  "), local(after, "%Y-%m-%d  ")));
  for (const BXLONG time : {BXCA_CREATION_TIME, BXCA_ALTERATION_TIME}) {
    EXPECT_GE(answer.texts.at(time), local(before, "%H.%M.%S"));
    EXPECT_LE(answer.texts.at(time), local(after, "%H.%M.%S"));
  }
}

TEST_P(Commands, WhatIsNotGivenHasItsDefault) {
  EXPECT_EQ(run(BXCMD_CREATE_QUEUE, [](Bag& bag) { bag.add(BXCA_QUEUE_NAME, "Q"); }).codes, kOk);
  const Answer answer = mine.inquire("Q");
  EXPECT_EQ(answer.numbers.at(BXIA_MAX_DEPTH), 5000);
  EXPECT_EQ(answer.numbers.at(BXIA_MAX_MESSAGE_LENGTH), 4'194'304);
  EXPECT_EQ(answer.numbers.at(BXIA_DEFAULT_PERSISTENCE), 1);
  EXPECT_EQ(answer.texts.at(BXCA_CLUSTER_NAME), std::string(48, ' '));
}

TEST_P(Commands, InquiriesSayWhatIsWanted) {
  ASSERT_EQ(mine.createQueue("Q"), kOk);
  const Answer answer = run(BXCMD_INQUIRE_QUEUE, [](Bag& bag) {
    bag.add(BXCA_QUEUE_NAME, "Q").ask(BXIA_MAX_DEPTH).ask(BXCA_CREATION_DATE);
  });
  EXPECT_EQ(answer.numbers, (std::map<BXLONG, BXLONG>{{BXIA_MAX_DEPTH, 5000}}));
  EXPECT_EQ(answer.texts.size(), 1U);
  EXPECT_EQ(refusal(BXCMD_INQUIRE_QUEUE, [](Bag& bag) { bag.add(BXCA_QUEUE_NAME, "Q").ask(99); }),
            BXRC_SELECTOR_ERROR);
  EXPECT_EQ(refusal(BXCMD_INQUIRE_QUEUE, [](Bag& b) { b.add(BXCA_QUEUE_NAME, "Q").add(99, 1); }),
            BXRC_SELECTOR_ERROR);
}

TEST_P(Commands, RefusalsTellTheirReason) {
  ASSERT_EQ(mine.createQueue("Q"), kOk);
  EXPECT_EQ(mine.createQueue("Q"), failed(BXRC_OBJECT_EXISTS));
  for (const std::string& wrong : {std::string(49, 'q'), std::string("a-b"), std::string()}) {
    EXPECT_EQ(mine.createQueue(wrong), failed(BXRC_UNKNOWN_OBJECT)) << wrong;
    EXPECT_EQ(mine.deleteQueue(wrong), failed(BXRC_UNKNOWN_OBJECT)) << wrong;
    EXPECT_EQ(mine.inquire(wrong).own, failed(BXRC_UNKNOWN_OBJECT)) << wrong;
  }
  for (const char wrong : std::string("@[`{-:$,\x7f\x80\xff\n"))
    EXPECT_EQ(mine.createQueue({wrong}), failed(BXRC_UNKNOWN_OBJECT)) << wrong;
  EXPECT_EQ(mine.inquire("NONE").codes, failed(BXRC_COMMAND_FAILED));
  using Attribute = std::pair<BXLONG, BXLONG>;
  for (const auto& [selector, value] :
       {Attribute{BXIA_MAX_DEPTH, -1}, Attribute{BXIA_MAX_DEPTH, 1'000'000'000},
        Attribute{BXIA_MAX_MESSAGE_LENGTH, 0}, Attribute{BXIA_MAX_MESSAGE_LENGTH, 104'857'601},
        Attribute{BXIA_DEFAULT_PERSISTENCE, 2}, Attribute{BXIA_DEFAULT_PRIORITY, 10},
        Attribute{BXIA_INHIBIT_PUT, 2}})
    EXPECT_EQ(mine.createQueue("R", {{selector, value}}), failed(BXRC_INT_ATTRS_ERROR)) << value;
  EXPECT_EQ(mine.createQueue("R", {{BXIA_PURGE, 1}}), failed(BXRC_SELECTOR_ERROR));
  EXPECT_EQ(mine.open("R").codes, failed(BXRC_UNKNOWN_OBJECT)) << "nothing was made";
  EXPECT_EQ(refusal(BXCMD_CREATE_QUEUE,
                    [](Bag& b) { b.add(BXCA_QUEUE_NAME, "R").add(BXIA_QUEUE_TYPE, 2); }),
            BXRC_Q_TYPE_ERROR);
  EXPECT_EQ(refusal(BXCMD_CREATE_QUEUE, [](Bag& b) { b.add(BXIA_QUEUE_TYPE, 1); }),
            BXRC_SELECTOR_ERROR);
  EXPECT_EQ(mine.deleteQueue("Q", 2), failed(BXRC_INT_ATTRS_ERROR));
  EXPECT_EQ(refusal(99, [](Bag& b) { b.add(BXCA_QUEUE_NAME, "Q"); }), BXRC_OPTIONS_ERROR);
}

TEST_P(Commands, AChangeHoldsForThoseWhoHaveTheQueueOpen) {
  ASSERT_EQ(mine.createQueue("Q"), kOk);
  Connection other = connect();
  Queue queue = other.open("Q");
  const auto change = [&](BXLONG selector, BXLONG value) {
    return run(BXCMD_CHANGE_QUEUE,
               [=](Bag& bag) { bag.add(BXCA_QUEUE_NAME, "Q").add(selector, value); })
        .codes;
  };
  EXPECT_EQ(queue.put("before"), kOk);
  EXPECT_EQ(change(BXIA_INHIBIT_PUT, BXPO_YES), kOk);
  EXPECT_EQ(queue.put("refused"), failed(BXRC_PUT_INHIBITED));
  EXPECT_EQ(change(BXIA_INHIBIT_GET, BXPO_YES), kOk);
  EXPECT_EQ(queue.get().codes, failed(BXRC_GET_INHIBITED));
  EXPECT_EQ(queue.browseFirst().codes, failed(BXRC_GET_INHIBITED));
  EXPECT_EQ(mine.inquire("Q").numbers.at(BXIA_INHIBIT_PUT), BXPO_YES) << "what is not told stays";
  for (const BXLONG which : {BXIA_INHIBIT_PUT, BXIA_INHIBIT_GET})
    EXPECT_EQ(change(which, BXPO_NO), kOk);
  EXPECT_EQ(queue.get().text, "before");
  EXPECT_EQ(change(BXIA_MAX_DEPTH, 1), kOk);
  EXPECT_EQ(queue.put("fits"), kOk);
  EXPECT_EQ(queue.put("does not"), failed(BXRC_Q_FULL));
  EXPECT_EQ(change(BXIA_PURGE, 1), failed(BXRC_COMMAND_FAILED));
}

TEST_P(Commands, FiguresTellWhatGoesOn) {
  ASSERT_EQ(mine.createQueue("Q"), kOk);
  const auto figures = [&] {
    return run(BXCMD_INQUIRE_QUEUE, [](Bag& bag) {
      bag.add(BXCA_QUEUE_NAME, "Q").ask(BXIA_OPEN_INPUT_COUNT).ask(BXIA_OPEN_OUTPUT_COUNT);
      bag.ask(BXIA_UNCOMMITTED).ask(BXIA_OLDEST_AGE).ask(BXCA_PUT_COUNT).ask(BXCA_GET_COUNT);
      bag.ask(BXCA_COUNTED_SINCE);
    });
  };
  using Numbers = std::map<BXLONG, BXLONG>;
  const Numbers quiet{{BXIA_OPEN_INPUT_COUNT, 0},
                      {BXIA_OPEN_OUTPUT_COUNT, 0},
                      {BXIA_UNCOMMITTED, 0},
                      {BXIA_OLDEST_AGE, -1}};
  EXPECT_EQ(figures().numbers, quiet);
  Connection writer = connect(), reader = connect(), looker = connect();
  for (const char* text : {"one", "two"}) EXPECT_EQ(writer.open("Q").put(text), kOk);
  EXPECT_EQ(writer.open("Q").put("three", {.options = BXPMO_SYNCPOINT}), kOk);
  EXPECT_EQ(looker.open("Q").browseFirst().text, "one");
  EXPECT_EQ(reader.open("Q").get().text, "one");
  Numbers busy = figures().numbers;
  EXPECT_LT(busy.at(BXIA_OLDEST_AGE), 60);
  busy.erase(BXIA_OLDEST_AGE);
  EXPECT_EQ(
      busy,
      (Numbers{{BXIA_OPEN_INPUT_COUNT, 1}, {BXIA_OPEN_OUTPUT_COUNT, 1}, {BXIA_UNCOMMITTED, 1}}));
  EXPECT_EQ(reader.open("Q").get().text, "two");
  for (Connection* each : {&writer, &reader}) EXPECT_EQ(each->disconnect(), kOk);
  EXPECT_TRUE(support::eventually([&] { // a database tells its counts a little later
    const Answer answer = figures();
    return answer.texts.at(BXCA_PUT_COUNT) == "3" && answer.texts.at(BXCA_GET_COUNT) == "2";
  }));
  EXPECT_EQ(mine.open("Q").get().text, "three");
}

TEST_P(Commands, AStoppedCommandServerAnswersNothing) {
  ASSERT_EQ(mine.createQueue("Q"), kOk);
  home->switchCommandServer(false);
  EXPECT_EQ(mine.createQueue("R"), failed(BXRC_COMMAND_SERVER_NOT_AVAILABLE));
  EXPECT_EQ(mine.inquire("Q").codes, failed(BXRC_COMMAND_SERVER_NOT_AVAILABLE));
  EXPECT_EQ(connect().deleteQueue("Q"), failed(BXRC_COMMAND_SERVER_NOT_AVAILABLE));
  EXPECT_EQ(mine.open("Q").put("messages go on"), kOk);
  home->switchCommandServer(true);
  EXPECT_EQ(mine.depth("Q"), 1);
}

} // namespace contract
