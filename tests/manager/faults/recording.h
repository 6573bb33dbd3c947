#pragma once

#include <cstdint>

namespace faults {

/// What a recording of storage calls is made of: one header for each event, followed by length
/// bytes.
enum EventType : char {
  kMake = 'N',   ///< a new file, which is to have the name
  kName = 'L',   ///< it has got the name
  kRemove = 'R', ///< what had the name has none any more
  kWrite = 'W',  ///< reached the system, not the disk
  kCut = 'C',    ///< everything from the offset on was taken off the file
  kSync = 'S',   ///< everything written to the file before, or all names, have reached the disk
  kMark = 'M',   ///< the program's own remark
};

struct EventHeader {
  char type;
  char file[55]; ///< empty for the folder
  std::uint64_t offset;
  std::uint64_t length;
  std::int64_t micros; ///< steady clock
};

} // namespace faults
