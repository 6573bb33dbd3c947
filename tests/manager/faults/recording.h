#pragma once

#include <cstdint>

namespace faults {

/// What a recording of storage calls is made of: one header for each event, followed by length
/// bytes.
enum EventType : char {
  kWrite = 'W',     ///< reached the system, not the disk
  kSyncWrite = 'D', ///< reached the disk before the call returned
  kSync = 'S',      ///< everything written to the file before has reached the disk
  kMark = 'M',      ///< the program's own remark
};

struct EventHeader {
  char type;
  char file[55];
  std::uint64_t offset;
  std::uint64_t length;
  std::int64_t micros; ///< steady clock
};

} // namespace faults
