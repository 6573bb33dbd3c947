#include "manager/base/failure.h"
#include "manager/store/message.h"
#include "manager/store/queue_definition.h"

#include <cstring>
#include <gtest/gtest.h>

namespace bxm {

namespace {

constexpr std::int64_t kPut = 1'700'000'000'123; ///< 2023-11-14 22:13:20.123 UTC

std::string encoded(const BXMD& descriptor, std::int64_t expires = 0,
                    const std::string& data = "data") {
  std::string record;
  encodeMessageHeader(descriptor, {kPut, expires}, {0x0102030405060708, 9}, record);
  return record + data;
}

/// What a get tells of a descriptor that was stored like this.
BXMD told(BXMD descriptor) {
  if (descriptor.characterSet == BXCS_Q_MGR) descriptor.characterSet = BXCS_UTF8;
  std::memcpy(descriptor.putDate, "20231114", 8);
  std::memcpy(descriptor.putTime, "22132012", 8);
  return descriptor;
}

BXMD ordinary() {
  BXMD descriptor = BXMD_DEFAULT;
  descriptor.persistence = BXPER_PERSISTENT;
  descriptor.priority = 4;
  return descriptor;
}

void expectRoundTrip(const BXMD& descriptor, std::int64_t expires = 0) {
  const std::string record = encoded(descriptor, expires);
  BXMD got = BXMD_DEFAULT;
  got.version = descriptor.version;
  got.priority = descriptor.priority;
  EXPECT_EQ(decodeMessage(record, kPut, got), "data");
  const BXMD expected = told(descriptor);
  EXPECT_EQ(std::memcmp(&got, &expected, sizeof got), 0);
}

TEST(Message, AnOrdinaryMessageIsSmall) {
  EXPECT_EQ(encoded(ordinary()).size(), 11 + 16 + 4);
  EXPECT_EQ(messageData(encoded(ordinary(), 0, "")), "");
}

TEST(Message, KeepsWhatIsGiven) {
  BXMD descriptor = ordinary();
  std::memset(descriptor.messageId, 1, sizeof descriptor.messageId);
  expectRoundTrip(descriptor);
  std::memset(descriptor.correlationId, 2, sizeof descriptor.correlationId);
  expectRoundTrip(descriptor);
  std::memcpy(descriptor.format, BXFMT_STRING, BX_FORMAT_LENGTH);
  expectRoundTrip(descriptor);
  std::memcpy(descriptor.format, "OTHER   ", BX_FORMAT_LENGTH);
  expectRoundTrip(descriptor);
  descriptor.persistence = BXPER_NOT_PERSISTENT;
  expectRoundTrip(descriptor);
  BXMD grouped = descriptor;
  grouped.version = BXMD_VERSION_2;
  grouped.sequenceNumber = 2;
  expectRoundTrip(grouped);
  descriptor.expiry = 50;
  expectRoundTrip(descriptor, kPut + 5000);
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
  const QueueDefinition made{"Q", "CLUSTER", 7, 8, kMaxDepthLimit, 1, BXPER_NOT_PERSISTENT, 9, 10};
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
