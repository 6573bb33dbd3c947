#pragma once

#include "manager/store/log/folder.h"
#include "manager/store/log/format.h"
#include "manager/store/log/runtime.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace bxm {

/// The log files of a manager: who may append to which, and which are empty. A file has one owner
/// at most; what is in it is read by everybody. Thread-safe. Everything throws a Failure that names
/// the file.
class LogFiles {
public:
  LogFiles(const Folder& folder, Runtime& runtime, std::uint64_t storeId)
      : m_folder(folder), m_runtime(runtime), m_storeId(storeId) {}

  struct Owned {
    std::uint32_t number = 0;
    std::shared_ptr<const File> file;
    Generation generation = 0;
    std::uint32_t capacity = 0;
  };
  /// A file with room for so many bytes behind what is in it. What is put gets one in which all is
  /// of earlier commits, since a boot enters messages as they stand there, and only while another
  /// one is free for takes, so that reading makes room on a full disk.
  struct Wanted {
    std::uint32_t owner;
    std::uint64_t number; ///< of the commit
    std::uint32_t room;
    bool forTakes;
  };
  Owned claim(Wanted wanted);
  /// Makes a file larger where more is wanted than a usual one holds, as far as may be. Returns the
  /// room that there is.
  std::uint32_t grow(Owned& owned, std::size_t wanted) const;
  /// Nobody owns it any more. usable: it may be appended to at its end.
  void release(std::uint32_t number, bool usable);

  std::uint32_t countFree() const;
  /// Makes sure that a file is free for takes.
  void keepOneFree(std::uint32_t owner);
  /// Moves a file that nobody owns to cleaning; false when somebody else does something with it.
  bool beginCleaning(std::uint32_t number, std::uint32_t owner);
  /// usable: see release.
  void endCleaning(std::uint32_t number, bool usable) { release(number, usable); }
  /// Makes a file that is being cleaned free, on the disk, or removes it when enough are free.
  void makeFree(std::uint32_t number);

  /// The file for reading, whatever its generation; kept open a while. Null when there is none.
  std::shared_ptr<const File> reader(std::uint32_t number);

  const Folder& folder() const { return m_folder; }
  Runtime& runtime() const { return m_runtime; }
  std::uint64_t storeId() const { return m_storeId; }

  static constexpr const char* kNewPrefix = ".new-"; ///< of one that is being made
  static std::string fileName(std::uint32_t number) { return "log-" + std::to_string(number); }
  /// The number in a log file's name; -1 of another's.
  static std::int64_t numberIn(const std::string& name);

private:
  bool tryClaim(std::uint32_t number, FileKind from, FileKind to, std::uint32_t owner);
  Owned open(std::uint32_t number);
  Owned make(std::uint32_t number, std::uint32_t capacity);
  std::optional<Owned> claimPresent(const Wanted& wanted);
  std::uint32_t claimAbsent(std::uint32_t owner);

  struct Reader {
    Generation generation;
    std::shared_ptr<const File> file;
  };
  const Folder& m_folder;
  Runtime& m_runtime;
  const std::uint64_t m_storeId;
  std::mutex m_mutex; ///< guards what follows
  std::map<std::uint32_t, Reader> m_readers;
};

struct FileState {
  FileKind kind = FileKind::kAbsent;
  std::uint16_t owner = 0;
  std::uint32_t packed() const {
    return static_cast<std::uint32_t>(kind) | std::uint32_t{owner} << 8;
  }
  static FileState unpacked(std::uint32_t bits) {
    return {static_cast<FileKind>(bits & 0xFF), static_cast<std::uint16_t>(bits >> 8)};
  }
};

/// Bytes behind what is in a file; none where its slot is damaged.
inline std::uint32_t roomIn(const FileSlot& slot, std::uint32_t capacity) {
  const std::uint32_t end = slot.end.load();
  return end >= kDataStart && end <= capacity && end % 8 == 0 ? capacity - end : 0;
}

/// Messages in a file that are not gone. Only for this use of it: a process that was stopped in
/// between must not count in the next one's.
void startLive(FileSlot& slot, Generation generation, std::uint32_t count);
void addLive(FileSlot& slot, std::uint32_t count);
/// True when the file has become empty, or mostly.
bool dropLive(FileSlot& slot, Generation generation, std::uint32_t count);
void dropAll(FileSlot& slot, Generation generation);
bool isMostlyEmpty(std::uint32_t live, std::uint32_t total);
std::uint32_t liveIn(const FileSlot& slot);

} // namespace bxm
