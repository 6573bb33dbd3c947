#include "manager/store/log/queue_index.h"

#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <utility>

namespace bxm {

namespace {

constexpr std::size_t kWindowBytes = QueueIndex::kWindow * sizeof(QueueIndex::Word);
constexpr std::size_t kSlotBytes = 4096;  ///< before the entries
constexpr std::uint64_t kFirstRoom = 512; ///< entries: a page
constexpr std::uint64_t kMostRoom = QueueIndex::kWindow;
constexpr std::size_t kMostTouched = 8;       ///< windows whose pages are held
constexpr std::uint64_t kTrimmed = 65536;     ///< entries given back at once
constexpr std::uint64_t kBetweenTrims = 4096; ///< messages that end, until it is looked for them

} // namespace

QueueIndex::QueueIndex(const Folder& folder, QueueSlot& slot, std::uint32_t queueId)
    : m_folder(folder), m_slot(slot), m_queueId(queueId) {}

QueueIndex::~QueueIndex() {
  for (const auto& [key, window] : m_windows) ::munmap(window.words, kWindowBytes);
  for (const auto& slot : m_slots)
    if (slot.load()) ::munmap(slot.load(), kSlotBytes);
}

std::string QueueIndex::fileName(std::uint32_t queueId, int priority) {
  return "index-" + std::to_string(queueId) + "-" + std::to_string(priority);
}

void QueueIndex::remove(const Folder& folder, std::uint32_t queueId) {
  for (int priority = 0; priority < kPriorities; ++priority)
    folder.remove(fileName(queueId, priority));
}

// ---- Mapping ------------------------------------------------------------------------------------

/// Made by who puts the first message of the priority, before the slot says that there may be any.
const File& QueueIndex::file(int priority) const {
  File& file = m_files[static_cast<std::size_t>(priority)];
  const auto access = mayHold(priority) ? Folder::Access::kWrite : Folder::Access::kMake;
  if (!file) file = m_folder.open(fileName(m_queueId, priority), access);
  if (!file) failGone(priority);
  return file;
}

void QueueIndex::failGone(int priority) const {
  throw Failure(BXRC_CONNECTION_BROKEN,
                m_folder.pathOf(fileName(m_queueId, priority)) +
                    " is gone; it is made again with runtime, once that is removed too");
}

namespace {

void* mapFile(const File& file, std::uint64_t offset, std::size_t size, const std::string& path) {
  void* mapped = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(),
                        static_cast<off_t>(offset));
  if (mapped == MAP_FAILED) failWithErrno(errno, BXRC_RESOURCE_PROBLEM, "cannot map " + path);
  return mapped;
}

} // namespace

/// A file that is made here is all zeros: an empty queue's.
PrioritySlot& QueueIndex::mapSlot(int priority) const {
  const std::lock_guard guard(m_mutex);
  auto& slot = m_slots[static_cast<std::size_t>(priority)];
  if (slot.load()) return *slot.load();
  const std::string path = m_folder.pathOf(fileName(m_queueId, priority));
  if (const int error = ::posix_fallocate(file(priority).get(), 0, kSlotBytes))
    failWithErrno(error, BXRC_RESOURCE_PROBLEM, "cannot make " + path);
  slot = static_cast<PrioritySlot*>(mapFile(file(priority), 0, kSlotBytes, path));
  return *slot.load();
}

QueueIndex::Word* QueueIndex::window(int priority, std::uint64_t number) const {
  const std::lock_guard guard(m_mutex);
  const std::uint64_t key = packedPosition(priority, number);
  auto found = m_windows.find(key);
  if (found == m_windows.end()) {
    void* mapped = mapFile(file(priority), kSlotBytes + number * kWindowBytes, kWindowBytes,
                           m_folder.pathOf(fileName(m_queueId, priority)));
    found = m_windows.emplace(key, Window{static_cast<Word*>(mapped)}).first;
  }
  if (!found->second.touched && ++m_touched > kMostTouched) letGoOfPages();
  found->second.touched = true;
  m_latest[static_cast<std::size_t>(priority)] = &*found;
  return found->second.words;
}

/// Whoever walks through a deep queue need not hold all of its index: who looks again finds it in
/// the file.
void QueueIndex::letGoOfPages() const {
  for (auto& [key, window] : m_windows)
    if (std::exchange(window.touched, false)) ::madvise(window.words, kWindowBytes, MADV_DONTNEED);
  m_touched = 1;
}

QueueIndex::Word& QueueIndex::entry(int priority, std::uint64_t sequence) const {
  const std::uint64_t number = sequence / kWindow;
  const Mapped* latest = m_latest[static_cast<std::size_t>(priority)].load();
  Word* const words = latest && latest->first == packedPosition(priority, number)
                          ? latest->second.words
                          : window(priority, number);
  return words[sequence % kWindow];
}

/// A file never becomes shorter while anybody uses it.
std::uint64_t QueueIndex::readyOf(int priority) const {
  const std::uint64_t ready = of(priority).ready.load();
  auto& room = m_room[static_cast<std::size_t>(priority)];
  if (ready <= room.load(std::memory_order_relaxed)) return ready;
  const std::lock_guard guard(m_mutex);
  const std::uint64_t size = file(priority).size();
  room = size > kSlotBytes ? (size - kSlotBytes) / sizeof(Word) : 0;
  return std::min(ready, room.load());
}

std::uint64_t QueueIndex::endOf(int priority) const {
  const std::uint64_t ready = readyOf(priority);
  std::uint64_t end = std::min(of(priority).tail.load(), ready);
  while (end < ready && entry(priority, end).load() != Entry::kEmpty) ++end;
  return end;
}

// ---- Entering -----------------------------------------------------------------------------------

void QueueIndex::promise(int priority, std::uint64_t count) {
  PrioritySlot& slot = of(priority);
  m_slot.priorities.fetch_or(1U << priority);
  if (!file(priority).isNamed()) failGone(priority);
  const std::uint64_t end = slot.promised.fetch_add(count) + count;
  const std::uint64_t ready = readyOf(priority);
  if (end <= ready) return mapFor(priority, count, end);
  const std::uint64_t more = std::clamp(ready, kFirstRoom, kMostRoom);
  const std::uint64_t wanted = (end + more + kFirstRoom - 1) / kFirstRoom * kFirstRoom;
  int error = 0;
  try {
    const std::lock_guard guard(m_mutex);
    error = ::posix_fallocate(file(priority).get(),
                              static_cast<off_t>(kSlotBytes + ready * sizeof(Word)),
                              static_cast<off_t>((wanted - ready) * sizeof(Word)));
  } catch (...) {
    giveBack(priority, count);
    throw;
  }
  if (error) {
    giveBack(priority, count);
    failWithErrno(error, BXRC_RESOURCE_PROBLEM,
                  "cannot extend " + m_folder.pathOf(fileName(m_queueId, priority)));
  }
  raiseTo(slot.ready, wanted);
  mapFor(priority, count, end);
}

/// Where as many entries as were promised are going to be.
void QueueIndex::mapFor(int priority, std::uint64_t count, std::uint64_t end) {
  try {
    for (std::uint64_t number = (end - count) / kWindow; number <= (end - 1) / kWindow; ++number)
      window(priority, number);
  } catch (...) {
    giveBack(priority, count);
    throw;
  }
}

void QueueIndex::giveBack(int priority, std::uint64_t count) {
  of(priority).promised.fetch_sub(count);
}

std::uint64_t QueueIndex::enter(int priority, std::uint64_t word,
                                std::atomic<std::uint64_t>* attempt) {
  PrioritySlot& slot = of(priority);
  for (std::uint64_t sequence = slot.tail.load();; ++sequence) {
    sequence = std::max(sequence, slot.base.load()); // what was given back reads as empty
    if (sequence >= readyOf(priority))
      throw Failure(BXRC_OBJECT_DAMAGED,
                    m_folder.pathOf(fileName(m_queueId, priority)) + " is damaged");
    if (attempt) attempt->store(sequence + 1, std::memory_order_release);
    BXM_KILL_POINT("enter-attempt");
    std::uint64_t empty = Entry::kEmpty;
    if (!entry(priority, sequence).compare_exchange_strong(empty, word)) continue;
    raiseTo(slot.tail, sequence + 1);
    return sequence;
  }
}

void raiseFloor(std::atomic<std::uint64_t>& floor, std::uint64_t seen, std::uint64_t sequence) {
  if (sequence <= floorSequence(seen)) return;
  floor.compare_exchange_strong(seen, seen - floorSequence(seen) + sequence);
}

void lowerFloor(std::atomic<std::uint64_t>& floor, std::uint64_t sequence) {
  std::uint64_t seen = floor.load();
  std::uint64_t lowered;
  do {
    const std::uint64_t generation = (seen >> 48) + 1;
    lowered = (generation << 48) | std::min(floorSequence(seen), sequence);
  } while (!floor.compare_exchange_weak(seen, lowered));
}

// ---- Trimming -----------------------------------------------------------------------------------

void QueueIndex::markGone(std::uint64_t position, std::uint32_t owner) {
  Word& word = entry(position);
  word = Entry::with(word.load(), Entry::kGone, owner);
  if (sequenceIn(position) % kBetweenTrims == 0) trim(priorityIn(position));
}

void QueueIndex::trim(int priority) {
  PrioritySlot& slot = of(priority);
  std::uint64_t base = slot.base.load();
  while (std::min(floorSequence(slot.floor.load()), readyOf(priority)) >= base + kTrimmed) {
    for (std::uint64_t i = base; i < base + kTrimmed; ++i)
      if (Entry::stateOf(entry(priority, i).load()) != Entry::kGone) return;
    if (!slot.base.compare_exchange_strong(base, base + kTrimmed)) continue;
    const std::lock_guard guard(m_mutex);
    // Where the file system cannot, the file stays as large as it is.
    [[maybe_unused]] const int result =
        ::fallocate(file(priority).get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                    static_cast<off_t>(kSlotBytes + base * sizeof(Word)),
                    static_cast<off_t>(kTrimmed * sizeof(Word)));
    base += kTrimmed;
  }
}

} // namespace bxm
