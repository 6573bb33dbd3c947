#include "manager/base/failure.h"
#include "manager/store/message.h"
#include "manager/store/queue_definition.h"

#include <gtest/gtest.h>

namespace bxm {

namespace {

constexpr std::int64_t kPut = 1'700'000'000'123;

std::string encoded(const BXMD& descriptor, std::int64_t expires = 0,
                    const std::string& data = "data") {
  std::string record;
  encodeMessageHeader(descriptor, {kPut, expires}, {0x0102030405060708, 9}, record);
  return record + data;
}

BXMD ordinary() {
  BXMD descriptor = BXMD_DEFAULT;
  descriptor.persistence = BXPER_PERSISTENT;
  descriptor.priority = 4;
  return descriptor;
}

TEST(Message, AnOrdinaryMessageIsSmall) {
  EXPECT_EQ(encoded(ordinary()).size(), 11 + 16 + 4);
  EXPECT_EQ(messageData(encoded(ordinary(), 0, "")), "");
}

TEST(Message, TellsWhatIsLeftOfTheExpiry) {
  const std::string record = encoded(ordinary(), kPut + 1000);
  EXPECT_EQ(messageExpiry(record), kPut + 1000);
  EXPECT_EQ(messageExpiry(encoded(ordinary())), 0);
  for (const auto& [now, left] : {std::pair{kPut, 10},
                                  {kPut + 1, 10},
                                  {kPut + 901, 1},
                                  {kPut + 5000, 1},
                                  {std::int64_t{1}, INT32_MAX}}) {
    BXMD got = BXMD_DEFAULT;
    decodeMessage(record, now, got);
    EXPECT_EQ(got.expiry, left) << now;
  }
}

TEST(Message, WhatIsCutShortIsDamaged) {
  BXMD descriptor = ordinary();
  descriptor.report = 1;
  const std::string record = encoded(descriptor, kPut + 1000, "");
  for (std::size_t size = 0; size < record.size(); ++size) {
    const std::string cut = record.substr(0, size); // a sanitizer sees a look behind it
    BXMD got = BXMD_DEFAULT;
    EXPECT_THROW(decodeMessage(cut, kPut, got), Failure) << size;
  }
  std::string newer = record;
  newer[0] = 2;
  EXPECT_THROW(messageData(newer), Failure);
  EXPECT_THROW(messageExpiry(newer.substr(0, 12)), Failure);
}

TEST(QueueDefinition, IsKeptWholeAndKnownToBeDamaged) {
  const QueueDefinition made{"Q", "CLUSTER", 7,    8,    kMaxDepthLimit, 1, BXPER_NOT_PERSISTENT,
                             9,   true,      true, 9999, 10};
  const std::string bytes = encodeDefinition(made);
  const QueueDefinition read = decodeDefinition("Q", bytes);
  EXPECT_EQ(encodeDefinition(read), bytes);
  EXPECT_EQ(read.name, "Q");
  EXPECT_EQ(read.cluster, "CLUSTER");
  EXPECT_EQ(read.id, 7U);
  EXPECT_EQ(read.slot, 8U);
  EXPECT_EQ(read.maxDepth, kMaxDepthLimit);
  EXPECT_EQ(read.altered, 10);
  for (std::size_t size = 0; size < bytes.size() - made.cluster.size(); ++size)
    EXPECT_THROW(decodeDefinition("Q", bytes.substr(0, size)), Failure) << size;
}

} // namespace

} // namespace bxm
