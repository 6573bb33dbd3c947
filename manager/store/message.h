#pragma once

#include "bx/bx.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace bxm {

/// Milliseconds since 1970.
inline std::int64_t clockNow() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

/// The stored form of a message: a small header and the data. Descriptors as nearly every program
/// fills them take 11 bytes and the identifier; any other is kept whole.
///
///   version u8 = 1 | flags u16 | put time i64 (ms since 1970)
///   [expiry time i64]                                   kExpires
///   [connection u64, counter u64]                       kMadeId
///   [identifier 24]                                     kGivenId
///   [correlation identifier 24]                         kCorrelated
///   [format 8]                                          kOtherFormat
///   [descriptor 364]                                    kWholeDescriptor
///   data
///
/// Numbers are little-endian.
enum MessageFlag : std::uint16_t {
  kExpires = 1,
  kMadeId = 2,
  kGivenId = 4,
  kCorrelated = 8,
  kStringFormat = 16,
  kOtherFormat = 32,
  kNotPersistent = 64,
  kWholeDescriptor = 128,
};

/// An identifier that the manager made: unique by the connection's random number and its counter.
struct MadeId {
  std::uint64_t connection = 0;
  std::uint64_t counter = 0;
  void writeTo(BXBYTE (&identifier)[BX_IDENTIFIER_LENGTH]) const;
};

/// What the header says that the descriptor does not.
struct MessageTimes {
  std::int64_t put = 0;     ///< ms since 1970
  std::int64_t expires = 0; ///< ms since 1970; 0 never
};

/// True for an identifier that the manager is to make, and a correlation identifier not given.
bool isZero(const BXBYTE (&identifier)[BX_IDENTIFIER_LENGTH]);

/// Appends the header of a message to out. The descriptor is as it is to be told by a get, its
/// persistence resolved; made is used when its identifier is zero.
void encodeMessageHeader(const BXMD& descriptor, const MessageTimes& times, const MadeId& made,
                         std::string& out);

/// When the message was put, ms since 1970.
std::int64_t messagePutTime(std::string_view stored);

/// When the message expires, ms since 1970; 0 never.
std::int64_t messageExpiry(std::string_view stored);

/// The message's data. Throws Failure (2101) when it is cut short.
std::string_view messageData(std::string_view stored);

/// Fills a descriptor from it, all but its version and priority; expiry is what is left at
/// now. Returns the data.
std::string_view decodeMessage(std::string_view stored, std::int64_t now, BXMD& descriptor);

/// Fills the descriptor's put date and time (UTC) from ms since 1970.
void setPutTime(BXMD& descriptor, std::int64_t putTime);

/// A message as a batch and a log hold it: this header, its stored form, and
/// zero bytes up to a multiple of eight. Numbers are little-endian.
struct ItemHeader {
  std::uint32_t size = 0; ///< of what follows, without the padding
  std::uint32_t queue = 0;
  std::uint32_t crc = 0; ///< CRC-32C of what follows, without the padding
  std::uint8_t priority = 0;
  std::uint8_t flags = 0; ///< kItem*
  std::uint16_t unused = 0;
};
static_assert(sizeof(ItemHeader) == 16);

constexpr std::uint8_t kItemExpires = 1;
constexpr std::uint8_t kItemCopied = 2; ///< the log's: its origin stands before it

constexpr std::size_t padded8(std::size_t size) { return (size + 7) & ~std::size_t{7}; }
constexpr std::size_t itemSize(std::size_t size) { return sizeof(ItemHeader) + padded8(size); }

/// The header at p; 16 bytes must be there.
inline ItemHeader itemHeaderAt(const char* p) {
  ItemHeader header;
  std::memcpy(&header, p, sizeof header);
  return header;
}

/// Calls visit(header, payload) for each of the whole items that a run of bytes holds.
template <typename Visit>
void forEachItem(std::string_view run, Visit visit) {
  for (const char* p = run.data(); p < run.data() + run.size();) {
    const ItemHeader header = itemHeaderAt(p);
    visit(header, std::string_view(p + sizeof header, header.size));
    p += itemSize(header.size);
  }
}

} // namespace bxm
