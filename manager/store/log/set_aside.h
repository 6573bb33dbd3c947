#pragma once

#include "manager/store/log/folder.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace bxm {

/// What a repair cannot keep, in a file of its own, damaged-<n>: for each piece a line of JSON with
/// what is known of it, what of it is text, and its bytes in hexadecimal digits.
class SetAside {
public:
  explicit SetAside(const Folder& folder) : m_folder(folder) {}

  struct Piece {
    std::string file;
    std::uint64_t byte = 0;
    std::uint32_t queue = 0; ///< id; 0: not of a message
    std::string queueName;   ///< empty: not known
    int priority = 0;
    std::string fault;
    std::string_view text; ///< of the bytes, what its reader wants
    std::string_view bytes;
  };
  void add(const Piece& piece);
  /// On the disk from then on.
  void finish() const;

  const std::string& fileName() const { return m_name; } ///< empty when nothing was added
  std::uint64_t count() const { return m_count; }

  static bool isFileName(const std::string& name) { return name.starts_with("damaged-"); }

private:
  void open();

  const Folder& m_folder;
  std::string m_name;
  File m_file;
  std::uint64_t m_size = 0, m_count = 0;
};

} // namespace bxm
