#pragma once

#include "manager/store/log/log_files.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace bxm {

/// Reads messages by their places, fast when they follow each other. Not thread-safe. What is read
/// is checked, so nothing of a damaged file does harm.
class LogReader {
public:
  explicit LogReader(LogFiles& files) : m_files(files) {}

  struct Item {
    ItemHeader header;
    std::string_view payload; ///< valid until the next call
  };
  /// nullopt when there is no message whose checksum is right.
  std::optional<Item> read(Place place);

private:
  /// What was read last of some files: readers of several queues or priorities take turns.
  struct Window {
    std::uint32_t file = UINT32_MAX;
    Generation generation = 0;
    std::uint32_t begin = 0;
    std::string bytes;
    std::size_t size = 0; ///< of the bytes, what was there
    std::size_t ahead = 0;
  };
  std::optional<Item> readIn(Window& window, Place place, bool anew);
  bool load(Window& window, Place place, std::size_t size) const;
  Window& windowFor(Place place, Generation generation);

  LogFiles& m_files;
  std::array<Window, 4> m_windows;
  std::size_t m_next = 0;
};

} // namespace bxm
