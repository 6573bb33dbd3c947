#pragma once

#include "manager/base/descriptor.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bxm {

/// A descriptor, closed at the end.
class File {
public:
  File() = default;
  explicit File(int descriptor) : m_descriptor(apartFromStandardStreams(descriptor)) {}
  ~File();
  File(File&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
  File& operator=(File&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
  }
  explicit operator bool() const { return m_descriptor >= 0; }
  int get() const { return m_descriptor; }

  /// Both go on after interruptions. read returns how much there is; write says 0 or errno, also
  /// when only a part could be written.
  std::size_t read(void* bytes, std::size_t size, std::uint64_t offset) const;
  int write(const void* bytes, std::size_t size, std::uint64_t offset) const;
  /// 0 or errno.
  int sync() const;
  /// Writes a part of another file at the same place; 0 or errno.
  int copy(const File& from, std::uint64_t begin, std::uint64_t end) const;
  /// False when the file has no name any more.
  bool isNamed() const;
  bool isRegular() const;
  std::uint64_t size() const;

private:
  int m_descriptor = -1;
};

/// A folder that is held open, and its files. They are regular files that no symbolic link leads
/// to, no program that is started inherits them, and they belong to whom the folder belongs to, so
/// that what root makes in a user's folder stays the user's. Everything throws a Failure that names
/// the file: 2035 no permission, 2056, 2059 what it is instead of a file.
class Folder {
public:
  /// Of an existing folder.
  explicit Folder(std::string path);
  /// Of one in another, not behind a link.
  Folder(const Folder& parent, const std::string& name);
  /// Makes a folder that only its owner and, where what it is in says so, the group may use.
  static void make(const Folder& parent, const std::string& name);

  const std::string& path() const { return m_path; }
  std::string pathOf(const std::string& name) const { return m_path + "/" + name; }

  enum class Access { kRead, kWrite, kMake, kMakeNew };
  /// For reading, or for both, made when it is missing, or only then. Without a descriptor when it
  /// is missing (kRead, kWrite) or there already (kMakeNew).
  File open(const std::string& name, Access access) const;
  /// What a short file holds; empty when there is none.
  std::string read(const std::string& name) const;
  /// Puts a file in the place of what has the name, all of it or nothing, on the disk.
  void replace(const std::string& name, std::string_view bytes) const;
  bool has(const std::string& name) const;
  void remove(const std::string& name) const; ///< nothing happens when it is missing
  void removeTree(const std::string& name) const;
  void rename(const std::string& from, const std::string& to) const;
  /// Each gets the other's name, in one step.
  void exchange(const std::string& one, const std::string& other) const;
  /// Makes a file with the bytes of another folder's, on the disk.
  void copy(const Folder& from, const std::string& name) const;
  void sync() const;
  std::vector<std::string> list() const;

private:
  [[noreturn]] void fail(int error, const char* what, const std::string& name) const;
  void adopt(const File& file, const std::string& name) const;
  File makeForAll(const std::string& name) const;

  std::string m_path;
  File m_folder;
};

} // namespace bxm
