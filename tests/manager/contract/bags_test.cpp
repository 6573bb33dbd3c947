#include "tests/manager/contract/fixture.h"

#include <cstring>

namespace contract {

class Bags : public Contract {
protected:
  Codes codes;
  Bag bag{api};

  Codes integer(BXHBAG from, BXLONG selector, BXLONG index, BXLONG& value) {
    api.bxInquireInteger(from, selector, index, &value, &codes.completion, &codes.reason);
    return codes;
  }
  Codes nested(BXHBAG from, BXHBAG& inner) {
    api.bxInquireBag(from, BXHA_RESPONSE, 0, &inner, &codes.completion, &codes.reason);
    return codes;
  }
  Codes remove(BXHBAG handle) {
    api.bxDeleteBag(&handle, &codes.completion, &codes.reason);
    return codes;
  }
  std::string trimmed(BXLONG length, const char* text) {
    char out[64] = "untouched";
    api.bxTrim(length, text, out, &codes.completion, &codes.reason);
    return out;
  }
};
FOR_EVERY_BINDING(Bags);

TEST_P(Bags, ItemsAreCountedBySelector) {
  bag.add(5, 50).add(6, "six").add(5, 51).ask(6);
  BXLONG value = 0, count = 0;
  EXPECT_EQ(integer(bag.handle(), 5, 1, value), kOk);
  EXPECT_EQ(value, 51);
  EXPECT_EQ(integer(bag.handle(), 5, 2, value), failed(BXRC_SELECTOR_COUNT_ERROR));
  EXPECT_EQ(integer(bag.handle(), 5, -1, value), failed(BXRC_SELECTOR_COUNT_ERROR));
  EXPECT_EQ(integer(bag.handle(), 7, 0, value), failed(BXRC_SELECTOR_ERROR));
  EXPECT_EQ(integer(bag.handle(), 6, 0, value), failed(BXRC_SELECTOR_TYPE_ERROR));
  EXPECT_EQ(integer(bag.handle(), 6, 1, value), failed(BXRC_SELECTOR_TYPE_ERROR));
  for (const auto& [selector, expected] : {std::pair{5, 2}, std::pair{6, 2}, std::pair{7, 0}}) {
    api.bxCountItems(bag.handle(), selector, &count, &codes.completion, &codes.reason);
    EXPECT_EQ(codes, kOk);
    EXPECT_EQ(count, expected) << selector;
  }
}

TEST_P(Bags, StringsArePaddedOrCut) {
  auto string = [this](BXLONG room, char* buffer, BXLONG* length, BXLONG* set = nullptr) {
    api.bxInquireString(bag.handle(), 1, 0, room, buffer, length, set, &codes.completion,
                        &codes.reason);
    return codes;
  };
  api.bxAddString(bag.handle(), 1, 4, "four, cut", &codes.completion, &codes.reason);
  EXPECT_EQ(codes, kOk);
  char buffer[8] = "#######";
  BXLONG length = 0, set = 0;
  EXPECT_EQ(string(6, buffer, &length, &set), kOk);
  EXPECT_EQ(std::string(buffer, 7), "four  #");
  EXPECT_EQ(length, 4);
  EXPECT_EQ(set, BXCS_UTF8);
  EXPECT_EQ(string(2, buffer, &length), warning(BXRC_CHAR_ATTRS_TOO_SHORT));
  EXPECT_EQ(std::string(buffer, 4), "four") << "two of them from before";
  EXPECT_EQ(length, 4);
  EXPECT_EQ(string(0, nullptr, &length), warning(BXRC_CHAR_ATTRS_TOO_SHORT));
  EXPECT_EQ(string(4, buffer, nullptr), kOk);
  EXPECT_EQ(string(-1, buffer, &length), failed(BXRC_BUFFER_LENGTH_ERROR));
  EXPECT_EQ(string(4, nullptr, &length), failed(BXRC_BUFFER_ERROR));
  auto add = [this](BXLONG given, const char* text) {
    api.bxAddString(bag.handle(), 2, given, text, &codes.completion, &codes.reason);
    return codes;
  };
  EXPECT_EQ(add(-2, "x"), failed(BXRC_BUFFER_LENGTH_ERROR));
  EXPECT_EQ(add(3, nullptr), failed(BXRC_BUFFER_ERROR));
  EXPECT_EQ(add(0, nullptr), kOk);
}

TEST_P(Bags, WrongHandlesAreTold) {
  Connection mine = connect();
  BXHBAG gone = bag.handle();
  EXPECT_EQ(remove(gone), kOk);
  BXLONG value = 0;
  for (const BXHBAG wrong : {gone, BXHBAG{0}, BXHBAG{BXHB_UNUSABLE}, BXHBAG{BXHB_NONE}}) {
    EXPECT_EQ(remove(wrong), failed(BXRC_HOBJ_ERROR));
    EXPECT_EQ(integer(wrong, 1, 0, value), failed(BXRC_HOBJ_ERROR));
    api.bxAddInteger(wrong, 1, 1, &codes.completion, &codes.reason);
    EXPECT_EQ(codes, failed(BXRC_HOBJ_ERROR));
  }
  Bag one(api), two(api);
  auto execute = [&](BXHCONN connection, BXHBAG command, BXHBAG response) {
    api.bxExecute(connection, BXCMD_INQUIRE_QUEUE, BXHB_NONE, command, response, BXHO_NONE,
                  BXHO_NONE, &codes.completion, &codes.reason);
    return codes;
  };
  EXPECT_EQ(execute(mine.handle, gone, two.handle()), failed(BXRC_HOBJ_ERROR));
  EXPECT_EQ(execute(mine.handle, one.handle(), gone), failed(BXRC_HOBJ_ERROR));
  EXPECT_EQ(execute(mine.handle, one.handle(), one.handle()).completion, BXCC_FAILED);
  EXPECT_EQ(execute(0, one.handle(), two.handle()), failed(BXRC_HCONN_ERROR));
}

TEST_P(Bags, ANestedBagLivesAsLongAsItsOuterOne) {
  Connection mine = connect();
  ASSERT_EQ(mine.createQueue("Q"), kOk);
  Bag arguments(api), response(api);
  arguments.add(BXCA_QUEUE_NAME, "Q");
  auto inquire = [&] {
    api.bxExecute(mine.handle, BXCMD_INQUIRE_QUEUE, BXHB_NONE, arguments.handle(),
                  response.handle(), BXHO_NONE, BXHO_NONE, &codes.completion, &codes.reason);
    return codes;
  };
  ASSERT_EQ(inquire(), kOk);
  BXHBAG inner = BXHB_UNUSABLE, again = BXHB_UNUSABLE;
  BXLONG value = 0;
  ASSERT_EQ(nested(response.handle(), inner), kOk);
  EXPECT_EQ(nested(response.handle(), again), kOk);
  EXPECT_EQ(inner, again);
  EXPECT_EQ(remove(inner).completion, BXCC_FAILED) << "it belongs to the outer one";
  api.bxExecute(mine.handle, BXCMD_INQUIRE_QUEUE, BXHB_NONE, arguments.handle(), inner, BXHO_NONE,
                BXHO_NONE, &codes.completion, &codes.reason);
  EXPECT_EQ(codes, failed(BXRC_HOBJ_ERROR)) << "so does what it holds";
  EXPECT_EQ(integer(inner, BXIA_MAX_DEPTH, 0, value), kOk);
  EXPECT_EQ(value, 5000);
  EXPECT_EQ(inquire(), kOk);
  EXPECT_EQ(integer(inner, BXIA_MAX_DEPTH, 0, value), failed(BXRC_HOBJ_ERROR))
      << "the response was emptied";
  ASSERT_EQ(nested(response.handle(), inner), kOk);
  EXPECT_EQ(remove(response.handle()), kOk);
  EXPECT_EQ(integer(inner, BXIA_MAX_DEPTH, 0, value), failed(BXRC_HOBJ_ERROR));
}

TEST_P(Bags, TrimEndsATextAfterItsLastCharacter) {
  EXPECT_EQ(trimmed(8, "ab  c   "), "ab  c");
  EXPECT_EQ(trimmed(4, "abcdef"), "abcd");
  EXPECT_EQ(trimmed(8, "ab \0cdef"), "ab");
  EXPECT_EQ(trimmed(3, "   "), "");
  EXPECT_EQ(trimmed(0, "abc"), "");
  EXPECT_EQ(trimmed(0, nullptr), "") << "a length of 0 allows a null buffer";
  EXPECT_EQ(codes, kOk);
  EXPECT_EQ(trimmed(-1, "abc"), "untouched");
  EXPECT_EQ(codes, failed(BXRC_BUFFER_LENGTH_ERROR));
  char same[8] = "xy    ";
  api.bxTrim(6, same, same, &codes.completion, &codes.reason);
  EXPECT_STREQ(same, "xy");
}

} // namespace contract
