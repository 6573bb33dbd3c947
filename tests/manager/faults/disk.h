#pragma once

#include "tests/manager/faults/recording.h"

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

/// A disk that loses power. Writes that were not flushed may have reached it or not, whole or in
/// part; a hole that is left reads as zeros. Flushed ones are there.
class Disk {
public:
  /// The files as they were flushed before the recording began.
  void preset(const std::string& file, const std::string& bytes) { m_files[file].flushed = bytes; }
  void apply(const Event& event);

  enum class Unflushed { kKept, kDropped, kTorn };
  /// What is found after the cut. inFlight, when given, is a call that had not returned.
  std::map<std::string, std::string> afterCut(Unflushed how, const Event* inFlight,
                                              std::mt19937& random) const;

private:
  struct Write {
    std::uint64_t offset;
    std::string data;
  };
  struct File {
    std::string flushed;
    std::vector<Write> waiting;
  };
  static void put(std::string& bytes, const Write& write);
  static void tear(std::string& bytes, const Write& write, std::mt19937& random);

  std::map<std::string, File> m_files;
};

} // namespace faults
