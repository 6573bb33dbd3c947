#pragma once

#include "bx/bx.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace bxm {

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
enum RecordFlag : std::uint16_t {
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
struct RecordTimes {
  std::int64_t put = 0;     ///< ms since 1970
  std::int64_t expires = 0; ///< ms since 1970; 0 never
};

/// True for an identifier that the manager is to make, and a correlation identifier not given.
bool isZero(const BXBYTE (&identifier)[BX_IDENTIFIER_LENGTH]);

/// Appends the header of a message to out. The descriptor is as it is to be told by a get, its
/// persistence resolved; made is used when its identifier is zero.
void encodeRecordHeader(const BXMD& descriptor, const RecordTimes& times, const MadeId& made,
                        std::string& out);

/// When the message expires, ms since 1970; 0 never.
std::int64_t recordExpiry(std::string_view record);

/// The message's data. Throws Failure (2101) when the record is cut short.
std::string_view recordData(std::string_view record);

/// Fills a descriptor from a record, all but its version and priority; expiry is what is left at
/// now. Returns the data.
std::string_view decodeRecord(std::string_view record, std::int64_t now, BXMD& descriptor);

/// Fills the descriptor's put date and time (UTC) from ms since 1970.
void setPutTime(BXMD& descriptor, std::int64_t putTime);

} // namespace bxm
