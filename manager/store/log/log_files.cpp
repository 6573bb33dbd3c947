#include "manager/store/log/log_files.h"

#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace bxm {

namespace {

constexpr std::uint32_t kMostFree = 2;       ///< kept to be used again, beside the one for takes
constexpr int kMostTries = 20;               ///< to find a file for takes
constexpr std::size_t kMostReaders = 64;     ///< kept open
constexpr std::uint32_t kLeastRoom = 65'536; ///< a file with less is full

std::uint64_t liveWord(Generation generation, std::uint32_t count) {
  return generation << 32 | count;
}

} // namespace

// ---- Counting -----------------------------------------------------------------------------------

void startLive(FileSlot& slot, Generation generation, std::uint32_t count) {
  slot.live = liveWord(generation, count);
}

void addLive(FileSlot& slot, std::uint32_t count) { slot.live.fetch_add(count); }

bool isMostlyEmpty(std::uint32_t live, std::uint32_t total) { return live <= total / 4; }

bool dropLive(FileSlot& slot, Generation generation, std::uint32_t count) {
  std::uint64_t seen = slot.live.load();
  std::uint32_t left = 0;
  do {
    left = static_cast<std::uint32_t>(seen);
    if (seen - left != liveWord(generation, 0) || left < count) return false;
  } while (!slot.live.compare_exchange_weak(seen, seen - count));
  const std::uint32_t total = slot.total.load();
  return left == count || (isMostlyEmpty(left - count, total) && !isMostlyEmpty(left, total));
}

void dropAll(FileSlot& slot, Generation generation) {
  std::uint64_t seen = slot.live.load();
  while (seen - static_cast<std::uint32_t>(seen) == liveWord(generation, 0) &&
         !slot.live.compare_exchange_weak(seen, liveWord(generation, 0))) {
  }
}

std::uint32_t liveIn(const FileSlot& slot) { return static_cast<std::uint32_t>(slot.live.load()); }

// ---- Claiming -----------------------------------------------------------------------------------

std::int64_t LogFiles::numberIn(const std::string& name) {
  constexpr std::string_view kStem = "log-";
  std::uint32_t number = 0;
  const char* const end = name.data() + name.size();
  if (!name.starts_with(kStem)) return -1;
  const auto result = std::from_chars(name.data() + kStem.size(), end, number);
  return result.ec == std::errc() && result.ptr == end && fileName(number) == name ? number : -1;
}

bool LogFiles::tryClaim(std::uint32_t number, FileKind from, FileKind to, std::uint32_t owner) {
  auto& state = m_runtime.file(number).state;
  std::uint32_t seen = state.load();
  return FileState::unpacked(seen).kind == from &&
         state.compare_exchange_strong(seen,
                                       FileState{to, static_cast<std::uint16_t>(owner)}.packed());
}

std::uint32_t LogFiles::countFree() const {
  std::uint32_t count = 0;
  for (std::uint32_t number = 0; number < m_runtime.fileLimit(); ++number)
    count += FileState::unpacked(m_runtime.file(number).state.load()).kind == FileKind::kFree;
  return count;
}

std::optional<LogFiles::Owned> LogFiles::claimPresent(const Wanted& wanted) {
  const std::uint32_t free = wanted.room <= kFileSize - kDataStart ? countFree() : 0;
  const auto suits = [&wanted](const FileSlot& slot) {
    return roomIn(slot, kFileSize) >= wanted.room &&
           (wanted.forTakes || slot.lastNumber.load() < wanted.number);
  };
  for (const FileKind kind : {FileKind::kIdle, FileKind::kFree})
    for (std::uint32_t number = 0; number < m_runtime.fileLimit(); ++number) {
      FileSlot& slot = m_runtime.file(number);
      if (kind == FileKind::kFree && !wanted.forTakes && free < 2) break;
      if (!suits(slot) || !tryClaim(number, kind, FileKind::kOwned, wanted.owner)) continue;
      // Its end may have moved before it was ours.
      if (suits(slot)) return open(number);
      release(number, true);
    }
  return std::nullopt;
}

LogFiles::Owned LogFiles::claim(Wanted wanted) {
  wanted.room = std::max(wanted.room, kLeastRoom);
  if (!wanted.forTakes) keepOneFree(wanted.owner);
  for (int left = wanted.forTakes ? kMostTries : 1;; --left) {
    if (auto present = claimPresent(wanted)) return *present;
    try {
      const std::uint32_t least = kDataStart + wanted.room;
      return make(claimAbsent(wanted.owner), std::max(kFileSize, (least + 4095) / 4096 * 4096));
    } catch (const Failure&) {
      if (left <= 1) throw;
    }
    // On a full disk all readers have one file in turns.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

std::uint32_t LogFiles::grow(Owned& owned, std::size_t wanted) const {
  const FileSlot& slot = m_runtime.file(owned.number);
  while (wanted > kFileSize && roomIn(slot, owned.capacity) < wanted &&
         owned.capacity + kFileSize <= kMostGrown &&
         countFree() > 0) { // it may be needed for takes
    if (::posix_fallocate(owned.file->get(), owned.capacity, kFileSize) != 0) {
      [[maybe_unused]] const int given = ::ftruncate(owned.file->get(), owned.capacity);
      break; // on a full disk a part of it may have been there
    }
    owned.capacity += kFileSize;
  }
  return roomIn(slot, owned.capacity);
}

std::uint32_t LogFiles::claimAbsent(std::uint32_t owner) {
  for (std::uint32_t number = 0;; ++number) {
    m_runtime.growFiles(number);
    if (tryClaim(number, FileKind::kAbsent, FileKind::kOwned, owner)) return number;
  }
}

void LogFiles::release(std::uint32_t number, bool usable) {
  FileSlot& slot = m_runtime.file(number);
  const bool room = roomIn(slot, kFileSize) >= kLeastRoom;
  slot.state = FileState{usable && room ? FileKind::kIdle : FileKind::kSealed, 0}.packed();
}

LogFiles::Owned LogFiles::open(std::uint32_t number) {
  Owned owned;
  owned.number = number;
  try {
    owned.file =
        std::make_shared<const File>(m_folder.open(fileName(number), Folder::Access::kWrite));
  } catch (...) {
    release(number, true);
    throw;
  }
  if (!*owned.file) {
    release(number, false);
    throw Failure(BXRC_CONNECTION_BROKEN, m_folder.pathOf(fileName(number)) + " is gone");
  }
  owned.generation = m_runtime.file(number).generation.load();
  owned.capacity = kFileSize;
  return owned;
}

LogFiles::Owned LogFiles::make(std::uint32_t number, std::uint32_t capacity) {
  const std::string name = fileName(number), made = kNewPrefix + name;
  FileSlot& slot = m_runtime.file(number);
  try {
    m_folder.remove(made); // what a process left that died over it
    Owned owned;
    owned.number = number;
    owned.file = std::make_shared<const File>(m_folder.open(made, Folder::Access::kMakeNew));
    owned.capacity = capacity;
    owned.generation = m_runtime.nextNumber();
    int error = *owned.file ? ::posix_fallocate(owned.file->get(), 0, capacity) : EEXIST;
    const std::string header = encodeFileHeader(number, m_storeId, owned.generation);
    if (!error) error = owned.file->write(header.data(), header.size(), 0);
    if (!error) error = owned.file->sync();
    if (error) failWithErrno(error, BXRC_UNEXPECTED, "cannot make " + m_folder.pathOf(name));
    m_folder.rename(made, name); // so a log file without a header is a damaged one
    m_folder.sync();
    BXM_KILL_POINT("file-made");
    slot.end = slot.allocated = kDataStart;
    slot.lastNumber = 0;
    slot.total = slot.takes = 0;
    slot.waitsGeneration = 0;
    startLive(slot, owned.generation, 0);
    slot.generation = owned.generation;
    return owned;
  } catch (...) {
    slot.state = FileState{FileKind::kAbsent, 0}.packed();
    try {
      m_folder.remove(made);
    } catch (const Failure&) { // whoever makes the file next tries again
    }
    throw;
  }
}

void LogFiles::keepOneFree(std::uint32_t owner) {
  if (countFree() > 0) return;
  const Owned made = make(claimAbsent(owner), kFileSize);
  m_runtime.file(made.number).state = FileState{FileKind::kFree, 0}.packed();
}

// ---- Cleaning -----------------------------------------------------------------------------------

bool LogFiles::beginCleaning(std::uint32_t number, std::uint32_t owner) {
  return tryClaim(number, FileKind::kSealed, FileKind::kCleaning, owner) ||
         tryClaim(number, FileKind::kIdle, FileKind::kCleaning, owner);
}

void LogFiles::makeFree(std::uint32_t number) {
  FileSlot& slot = m_runtime.file(number);
  const File writable = m_folder.open(fileName(number), Folder::Access::kWrite);
  const Generation next = m_runtime.nextNumber();
  std::string header = encodeFileHeader(number, m_storeId, next);
  header.resize(kSealAt + sizeof(Seal)); // over the last use's
  int error = writable ? writable.write(header.data(), header.size(), 0) : 0;
  BXM_KILL_POINT("free-written");
  if (writable && !error) error = writable.sync();
  if (error)
    failWithErrno(error, BXRC_UNEXPECTED, "cannot write " + m_folder.pathOf(fileName(number)));
  BXM_KILL_POINT("free-synced");
  // Behind the flush, and not on the disk itself: until then the old header needs what it tells of.
  const bool usual = writable && writable.size() >= kFileSize &&
                     (writable.size() == kFileSize || ::ftruncate(writable.get(), kFileSize) == 0);
  // Before the generation: who waits for that finds all of it.
  slot.end = kDataStart;
  slot.lastNumber = 0;
  slot.total = slot.takes = 0;
  slot.waitsGeneration = 0;
  startLive(slot, next, 0);
  slot.generation = next;
  if (usual && countFree() <= kMostFree) {
    slot.state = FileState{FileKind::kFree, 0}.packed();
    return;
  }
  m_folder.remove(fileName(number));
  BXM_KILL_POINT("free-removed");
  slot.state = FileState{FileKind::kAbsent, 0}.packed();
}

// ---- Reading ------------------------------------------------------------------------------------

std::shared_ptr<const File> LogFiles::reader(std::uint32_t number) {
  if (number >= m_runtime.fileLimit()) return nullptr;
  const Generation generation = m_runtime.file(number).generation.load();
  const std::lock_guard guard(m_mutex);
  const auto found = m_readers.find(number);
  if (found != m_readers.end() && found->second.generation == generation) return found->second.file;
  if (m_readers.size() >= kMostReaders) m_readers.erase(m_readers.begin());
  auto file = std::make_shared<const File>(m_folder.open(fileName(number), Folder::Access::kRead));
  if (!*file) return nullptr;
  m_readers[number] = {generation, file};
  return file;
}

} // namespace bxm
