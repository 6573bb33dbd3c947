#pragma once

#include "tests/manager/faults/recording.h"

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace faults {

struct Event {
  EventHeader header;
  std::string data;
};

/// The events of a recording, in their order.
std::vector<Event> readRecording(const std::string& path);

/// A folder on a disk that loses power. Writes that were not flushed may have reached it or not,
/// whole or in part; a hole that is left reads as zeros. Flushed ones are there. A name that was
/// given or taken since the folder was flushed may still be what it was.
class Disk {
public:
  /// The files as they were flushed before the recording began.
  void preset(const std::string& name, const std::string& bytes);
  void apply(const Event& event);

  /// kLast: of each file, the last two writes: a record's header and what follows it.
  enum class Unflushed { kKept, kDropped, kTorn, kLast };
  /// What is found after the cut. inFlight, when given, is a call that had not returned.
  std::map<std::string, std::string> afterCut(Unflushed how, const Event* inFlight,
                                              std::mt19937& random) const;

private:
  struct Write {
    std::uint64_t offset;
    std::string data;
    bool cuts = false; ///< what is behind
  };
  struct File {
    std::string flushed;
    std::vector<Write> waiting;
  };
  static void put(std::string& bytes, const Write& write);
  static void tear(std::string& bytes, const Write& write, std::mt19937& random);

  static constexpr std::size_t kNone = SIZE_MAX;
  std::vector<File> m_files;
  std::map<std::string, std::size_t> m_latest; ///< of what was to have a name
  /// What had a name since the folder was flushed, in that order.
  std::map<std::string, std::vector<std::size_t>> m_names;
};

} // namespace faults
