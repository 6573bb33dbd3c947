#include "manager/store/message.h"

#include "manager/base/bytes.h"
#include "manager/base/failure.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstring>

namespace bxm {

namespace {

constexpr std::uint8_t kVersion = 1;
constexpr std::size_t kFixedSize = 1 + 2 + 8;
constexpr BXMD kDefaultDescriptor = BXMD_DEFAULT;

/// True when the fields that the header does not tell by itself are as they are by default.
bool isOrdinary(const BXMD& d) {
  constexpr std::size_t kFirst = offsetof(BXMD, backoutCount), kAfter = offsetof(BXMD, putDate);
  constexpr std::size_t kRest = offsetof(BXMD, applicationOrigin);
  const char* bytes = reinterpret_cast<const char*>(&d);
  const char* plain = reinterpret_cast<const char*>(&kDefaultDescriptor);
  const auto same = [=](std::size_t from, std::size_t to) {
    return std::string_view(bytes + from, to - from) == std::string_view(plain + from, to - from);
  };
  return d.report == kDefaultDescriptor.report && d.messageType == kDefaultDescriptor.messageType &&
         d.feedback == kDefaultDescriptor.feedback && d.encoding == kDefaultDescriptor.encoding &&
         (d.characterSet == BXCS_Q_MGR || d.characterSet == BXCS_UTF8) && same(kFirst, kAfter) &&
         same(kRest, sizeof(BXMD));
}

bool hasFormat(const BXMD& descriptor, const char* format) {
  return std::memcmp(descriptor.format, format, BX_FORMAT_LENGTH) == 0;
}

std::uint16_t flagsOf(const BXMD& descriptor, const MessageTimes& times) {
  unsigned flags = times.expires ? kExpires : 0;
  flags |= isZero(descriptor.messageId) ? kMadeId : kGivenId;
  if (!isZero(descriptor.correlationId)) flags |= kCorrelated;
  if (hasFormat(descriptor, BXFMT_STRING))
    flags |= kStringFormat;
  else if (!hasFormat(descriptor, BXFMT_NONE))
    flags |= kOtherFormat;
  if (descriptor.persistence == BXPER_NOT_PERSISTENT) flags |= kNotPersistent;
  if (!isOrdinary(descriptor)) flags |= kWholeDescriptor;
  return static_cast<std::uint16_t>(flags);
}

std::uint16_t flagsIn(std::string_view stored) {
  if (stored.size() < kFixedSize || static_cast<std::uint8_t>(stored[0]) != kVersion)
    throw Failure(BXRC_OBJECT_DAMAGED, "a stored message is not readable");
  std::uint16_t flags;
  std::memcpy(&flags, stored.data() + 1, sizeof flags);
  return flags;
}

/// By the flags: looked up for each message several times.
constexpr auto kHeaderSizes = [] {
  std::array<std::uint16_t, 2 * kWholeDescriptor> sizes{};
  for (std::size_t flags = 0; flags < sizes.size(); ++flags)
    sizes[flags] = static_cast<std::uint16_t>(kFixedSize + (flags & kExpires ? 8 : 0) +
                                              (flags & kMadeId ? 16 : 0) +
                                              (flags & kGivenId ? BX_IDENTIFIER_LENGTH : 0) +
                                              (flags & kCorrelated ? BX_IDENTIFIER_LENGTH : 0) +
                                              (flags & kOtherFormat ? BX_FORMAT_LENGTH : 0) +
                                              (flags & kWholeDescriptor ? sizeof(BXMD) : 0));
  return sizes;
}();

void putDigits(char* field, unsigned value, int digits) {
  for (int i = digits - 1; i >= 0; --i, value /= 10) field[i] = static_cast<char>('0' + value % 10);
}

BXLONG tenthsLeft(std::int64_t expires, std::int64_t now) {
  const std::int64_t tenths = (expires - (now ? now : clockNow()) + 99) / 100;
  return static_cast<BXLONG>(std::clamp<std::int64_t>(tenths, 1, INT32_MAX));
}

} // namespace

void MadeId::writeTo(BXBYTE (&identifier)[BX_IDENTIFIER_LENGTH]) const {
  const std::uint64_t numbers[] = {__builtin_bswap64(connection), __builtin_bswap64(counter)};
  std::memcpy(identifier, "BXM ", 4);
  std::memcpy(identifier + 4, numbers, sizeof numbers);
  std::memset(identifier + 20, 0, 4);
}

bool isZero(const BXBYTE (&identifier)[BX_IDENTIFIER_LENGTH]) {
  constexpr BXBYTE kZero[BX_IDENTIFIER_LENGTH] = {};
  return std::memcmp(identifier, kZero, sizeof kZero) == 0;
}

void encodeMessageHeader(const BXMD& descriptor, const MessageTimes& times, const MadeId& made,
                         std::string& out) {
  const std::uint16_t flags = flagsOf(descriptor, times);
  appendLittle<std::uint8_t>(out, kVersion);
  appendLittle(out, flags);
  appendLittle(out, times.put);
  if (flags & kExpires) appendLittle(out, times.expires);
  if (flags & kMadeId) {
    appendLittle(out, made.connection);
    appendLittle(out, made.counter);
  }
  auto append = [&out](const void* field, std::size_t size) {
    out.append(static_cast<const char*>(field), size);
  };
  if (flags & kGivenId) append(descriptor.messageId, BX_IDENTIFIER_LENGTH);
  if (flags & kCorrelated) append(descriptor.correlationId, BX_IDENTIFIER_LENGTH);
  if (flags & kOtherFormat) append(descriptor.format, BX_FORMAT_LENGTH);
  if (flags & kWholeDescriptor) append(&descriptor, sizeof descriptor);
}

std::int64_t messagePutTime(std::string_view stored) {
  flagsIn(stored); // is readable
  const char* p = stored.data() + 3;
  return takeLittle<std::int64_t>(p);
}

std::int64_t messageExpiry(std::string_view stored) {
  if (!(flagsIn(stored) & kExpires)) return 0;
  if (stored.size() < kFixedSize + 8)
    throw Failure(BXRC_OBJECT_DAMAGED, "a stored message is cut short");
  const char* p = stored.data() + kFixedSize;
  return takeLittle<std::int64_t>(p);
}

std::string_view messageData(std::string_view stored) {
  const std::size_t header = kHeaderSizes[flagsIn(stored) % kHeaderSizes.size()];
  if (stored.size() < header) throw Failure(BXRC_OBJECT_DAMAGED, "a stored message is cut short");
  return stored.substr(header);
}

std::string_view decodeMessage(std::string_view stored, std::int64_t now, BXMD& descriptor) {
  const std::string_view data = messageData(stored);
  const std::uint16_t flags = flagsIn(stored);
  const BXLONG version = descriptor.version, priority = descriptor.priority;
  const char* p = stored.data() + 3;
  const auto putTime = takeLittle<std::int64_t>(p);
  const std::int64_t expires = flags & kExpires ? takeLittle<std::int64_t>(p) : 0;
  const char* ids = p;
  if (flags & kWholeDescriptor)
    std::memcpy(&descriptor, data.data() - sizeof descriptor, sizeof descriptor);
  else
    descriptor = kDefaultDescriptor;
  descriptor.version = version;
  descriptor.priority = priority;
  descriptor.expiry = expires ? tenthsLeft(expires, now) : BXEI_UNLIMITED;
  descriptor.persistence = flags & kNotPersistent ? BXPER_NOT_PERSISTENT : BXPER_PERSISTENT;
  if (descriptor.characterSet == BXCS_Q_MGR) descriptor.characterSet = BXCS_UTF8;
  if (flags & kMadeId) {
    MadeId made;
    made.connection = takeLittle<std::uint64_t>(ids);
    made.counter = takeLittle<std::uint64_t>(ids);
    made.writeTo(descriptor.messageId);
  }
  auto read = [&ids](void* field, std::size_t size) {
    std::memcpy(field, ids, size);
    ids += size;
  };
  if (flags & kGivenId) read(descriptor.messageId, BX_IDENTIFIER_LENGTH);
  if (flags & kCorrelated) read(descriptor.correlationId, BX_IDENTIFIER_LENGTH);
  if (flags & kStringFormat) std::memcpy(descriptor.format, BXFMT_STRING, BX_FORMAT_LENGTH);
  if (flags & kOtherFormat) read(descriptor.format, BX_FORMAT_LENGTH);
  setPutTime(descriptor, putTime);
  return data;
}

namespace {

/// "YYYYMMDDHHMMSS" of a second since 1970, UTC.
struct SecondText {
  std::int64_t second = INT64_MIN;
  char text[14];
  void set(std::int64_t wanted) {
    using namespace std::chrono;
    const sys_seconds time{seconds(wanted)};
    const auto day = floor<days>(time);
    const year_month_day date{day};
    const hh_mm_ss clock{time - day};
    putDigits(text, static_cast<unsigned>(static_cast<int>(date.year())), 4);
    putDigits(text + 4, static_cast<unsigned>(date.month()), 2);
    putDigits(text + 6, static_cast<unsigned>(date.day()), 2);
    putDigits(text + 8, static_cast<unsigned>(clock.hours().count()), 2);
    putDigits(text + 10, static_cast<unsigned>(clock.minutes().count()), 2);
    putDigits(text + 12, static_cast<unsigned>(clock.seconds().count()), 2);
    second = wanted;
  }
};

} // namespace

void setPutTime(BXMD& descriptor, std::int64_t putTime) {
  // Messages that are put together are put in the same second.
  static thread_local SecondText cached;
  const std::int64_t second = putTime >= 0 ? putTime / 1000 : (putTime - 999) / 1000;
  if (cached.second != second) cached.set(second);
  std::memcpy(descriptor.putDate, cached.text, 8);
  std::memcpy(descriptor.putTime, cached.text + 8, 6);
  putDigits(descriptor.putTime + 6, static_cast<unsigned>(putTime - second * 1000) / 10, 2);
}

} // namespace bxm
