#include "manager/store/log/reclaim.h"

#include "manager/base/bytes.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/store/log/log_scan.h"

#include <algorithm>
#include <chrono>
#include <unordered_map>

namespace bxm {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kMostIdle = 8; ///< partly filled files that are left to be appended to
/// A file with so few takes that are still needed has them written anew.
constexpr std::size_t kMostCarried = 16'384;
constexpr std::size_t kLeastSpread = 2;     ///< mostly empty files that are worth a move
constexpr std::size_t kMostEmptied = 16;    ///< in one pass
constexpr std::size_t kMostMoved = 1 << 20; ///< bytes in one unit

/// Where an available message is named in the index.
struct Named {
  QueueIndex::Word* entry;
  std::uint64_t word;
  std::shared_ptr<QueueShare> share; ///< keeps the entry mapped
};

class Reclaim {
public:
  Reclaim(LogStore& store, LogWriter& writer, std::uint32_t connection)
      : m_store(store), m_runtime(store.runtime()), m_writer(writer), m_connection(connection) {}

  void run() {
    const bool recount = m_runtime.recountWanted().exchange(0) != 0;
    if (recount) freeUncounted();
    freeEmpty();
    if (moveOldMessages()) freeEmpty();
    try {
      m_store.files().keepOneFree(m_connection);
    } catch (const Failure&) { // there is no room for it now
    }
  }

private:
  FileState stateOf(std::uint32_t number) const {
    return FileState::unpacked(m_runtime.file(number).state.load());
  }
  void freeUncounted();
  void dropUnnamed(const std::vector<Generation>& still);
  void freeEmpty();
  bool isWorthFreeing(std::uint32_t number, std::uint32_t& idle) const;
  bool tryFree(std::uint32_t number);
  bool clean(std::uint32_t number);
  bool isCurrent(std::uint32_t file, Generation generation) const {
    return file < m_runtime.fileLimit() && m_runtime.file(file).generation.load() == generation;
  }
  /// What a file is needed for though it is empty.
  struct Needs {
    std::vector<TakeGroup> takes;
    Place origin; ///< of a copy
    Generation originGeneration = 0;
  };
  Needs needsOf(std::uint32_t number);
  bool moveOldMessages();
  std::vector<std::uint32_t> mostlyEmpty() const;
  std::size_t moveFrom(std::uint32_t number, const std::unordered_map<std::uint64_t, Named>& named);
  void addCopy(std::string& items, const RecordView& record, Place at, const ItemHeader& item,
               std::string_view payload) const;
  void moveUnit(const std::string& items, const std::vector<Named>& moved);
  std::vector<TakeGroup> enterCopies(const std::string& items, const std::vector<Named>& moved);
  bool enterCopy(const Named& original, Place place) const;
  LogWriter::Result write(std::uint64_t number, const std::vector<TakeGroup>& takes,
                          std::string_view items, std::atomic<std::uint64_t>* place);

  LogStore& m_store;
  Runtime& m_runtime;
  LogWriter& m_writer;
  const std::uint32_t m_connection;
};

// ---- Empty files --------------------------------------------------------------------------------

/// Counts may be too high after a death or a queue's deletion. What no index names is not needed;
/// of a file that nobody can append to meanwhile.
void Reclaim::freeUncounted() {
  std::vector<Generation> still(m_runtime.fileLimit());
  std::vector<std::uint32_t> held;
  for (std::uint32_t number = 0; number < still.size(); ++number) {
    const FileSlot& slot = m_runtime.file(number);
    const FileKind kind = stateOf(number).kind;
    const bool isHeld = kind == FileKind::kIdle && slot.end.load() >= kFileSize / 2 &&
                        liveIn(slot) > 0 && m_store.files().beginCleaning(number, m_connection);
    if (isHeld) held.push_back(number);
    if (isHeld || kind == FileKind::kSealed) still[number] = slot.generation.load();
  }
  try {
    dropUnnamed(still);
  } catch (...) {
    for (const std::uint32_t number : held) m_store.files().endCleaning(number, true);
    throw;
  }
  for (const std::uint32_t number : held) m_store.files().endCleaning(number, true);
}

void Reclaim::dropUnnamed(const std::vector<Generation>& still) {
  std::vector<bool> named(still.size());
  m_store.forEachEntry([&](const auto&, QueueIndex::Word& entry) {
    const std::uint64_t word = entry.load();
    const std::uint32_t file = Entry::placeOf(word).file;
    const auto state = Entry::stateOf(word);
    if (file < named.size() && state != Entry::kEmpty && state != Entry::kGone) named[file] = true;
  });
  for (std::uint32_t number = 0; number < still.size(); ++number)
    if (still[number] != 0 && !named[number]) dropAll(m_runtime.file(number), still[number]);
}

void Reclaim::freeEmpty() {
  for (bool any = true; any;) { // what is free may have been what others' takes were needed for
    any = false;
    std::uint32_t idle = 0;
    for (std::uint32_t number = 0; number < m_runtime.fileLimit(); ++number)
      if (isWorthFreeing(number, idle)) any = tryFree(number) || any;
  }
}

bool Reclaim::isWorthFreeing(std::uint32_t number, std::uint32_t& idle) const {
  const FileSlot& slot = m_runtime.file(number);
  const FileKind kind = stateOf(number).kind;
  const bool spare =
      kind == FileKind::kIdle && (++idle > kMostIdle || slot.end.load() >= kFileSize / 2);
  if ((kind != FileKind::kSealed && !spare) || liveIn(slot) != 0) return false;
  const std::uint64_t waits = slot.waitsGeneration.load();
  return waits == 0 || m_runtime.file(slot.waitsFile.load()).generation.load() != waits;
}

bool Reclaim::tryFree(std::uint32_t number) {
  const bool usable = stateOf(number).kind == FileKind::kIdle;
  if (!m_store.files().beginCleaning(number, m_connection)) return false;
  BXM_KILL_POINT("clean-begin");
  bool free = false;
  try {
    free = clean(number);
  } catch (...) {
    m_store.files().endCleaning(number, usable);
    throw;
  }
  if (!free) m_store.files().endCleaning(number, usable);
  return free;
}

bool Reclaim::clean(std::uint32_t number) {
  FileSlot& slot = m_runtime.file(number);
  if (liveIn(slot) != 0) return false; // appended to before it was ours
  const auto [takes, origin, originGeneration] = slot.takes.load() > 0 ? needsOf(number) : Needs();
  std::size_t count = 0;
  for (const TakeGroup& group : takes) count += group.offsets.size();
  if (originGeneration != 0 || count > kMostCarried) {
    slot.waitsFile = originGeneration != 0 ? origin.file : takes.front().file;
    slot.waitsGeneration = originGeneration != 0 ? originGeneration : takes.front().generation;
    return false;
  }
  if (count > 0) {
    const std::lock_guard writes(m_writer.mutex());
    if (write(m_runtime.nextNumber(), takes, {}, nullptr) != LogWriter::Result::kDone) return false;
    m_writer.done();
    BXM_KILL_POINT("clean-carried");
  }
  m_store.files().makeFree(number);
  return true;
}

/// Takes of messages in files that are not known to be free on the disk; and without a copy what it
/// was made of would be there again, as long as its file is. Of a unit that failed nothing is
/// needed.
Reclaim::Needs Reclaim::needsOf(std::uint32_t number) {
  Needs needs;
  const auto file = m_store.files().reader(number);
  if (!file) return needs;
  const LogScan scan(*file, number, m_store.files().storeId());
  const std::uint32_t end = m_runtime.file(number).end.load();
  scan.run(
      [&](const RecordView& record, LogScan::Known) {
        if (!record.isSound() || record.place().offset >= end) return;
        record.forEachTakeGroup([&](const TakeGroup& group) {
          if (group.file == number || !isCurrent(group.file, group.generation)) return;
          for (const std::uint32_t offset : group.offsets)
            addTake(needs.takes, {group.file, offset}, group.generation, group.kind);
        });
        record.forEachMessage([&](Place, const ItemHeader& item, std::string_view payload) {
          if (!(item.flags & kItemCopied) || payload.size() < sizeof(CopyOrigin)) return;
          const CopyOrigin origin = originOf(payload);
          const Place place = Place::unpacked(origin.place);
          if (!isCurrent(place.file, origin.generation)) return;
          needs.origin = place;
          needs.originGeneration = origin.generation;
        });
      },
      [](auto, auto) {});
  return needs;
}

LogWriter::Result Reclaim::write(std::uint64_t number, const std::vector<TakeGroup>& takes,
                                 std::string_view items, std::atomic<std::uint64_t>* place) {
  const LogWriter::Runs runs = [items](const auto& visit) {
    if (!items.empty()) visit(items, true);
  };
  BXLONG reason = BXRC_NONE;
  return m_writer.write({number, takes, runs, place}, reason);
}

// ---- Old messages -------------------------------------------------------------------------------

std::vector<std::uint32_t> Reclaim::mostlyEmpty() const {
  std::vector<std::uint32_t> files;
  std::size_t full = 0;
  for (std::uint32_t number = 0; number < m_runtime.fileLimit(); ++number) {
    const FileSlot& slot = m_runtime.file(number);
    const FileKind kind = stateOf(number).kind;
    // What is left in one may be too little for the messages that come.
    const bool isFull =
        kind == FileKind::kSealed || (kind == FileKind::kIdle && slot.end.load() >= kFileSize / 2);
    if (!isFull) continue;
    ++full;
    if (liveIn(slot) > 0 && isMostlyEmpty(liveIn(slot), slot.total.load())) files.push_back(number);
  }
  if (files.size() < kLeastSpread || files.size() * 4 < full) files.clear();
  files.resize(std::min(files.size(), kMostEmptied));
  return files;
}

/// True when some were moved.
bool Reclaim::moveOldMessages() {
  static std::atomic<std::int64_t> due{0}; // it walks through all of the index
  const auto begin = Clock::now();
  const auto files = mostlyEmpty();
  if (files.empty() || begin.time_since_epoch().count() < due.load()) return false;
  std::unordered_map<std::uint64_t, Named> named;
  m_store.forEachEntry([&](const auto& share, QueueIndex::Word& entry) {
    const std::uint64_t word = entry.load();
    const Place place = Entry::placeOf(word);
    if (Entry::stateOf(word) == Entry::kAvailable &&
        std::binary_search(files.begin(), files.end(), place.file))
      named[place.packed()] = {&entry, word, share};
  });
  std::size_t moved = 0;
  for (const std::uint32_t number : files) {
    // Nobody else moves them, nor frees the file before it is said what became of the copies.
    if (!m_store.files().beginCleaning(number, m_connection)) continue;
    try {
      moved += moveFrom(number, named);
    } catch (...) {
      m_store.files().endCleaning(number, false);
      throw;
    }
    m_store.files().endCleaning(number, false);
  }
  due = (begin + (Clock::now() - begin) * 10).time_since_epoch().count();
  return moved > 0;
}

std::size_t Reclaim::moveFrom(std::uint32_t number,
                              const std::unordered_map<std::uint64_t, Named>& named) {
  const auto file = m_store.files().reader(number);
  if (!file) return 0;
  const LogScan scan(*file, number, m_store.files().storeId());
  std::string items;
  std::vector<Named> moved;
  std::size_t count = 0;
  const auto flush = [&] {
    if (!moved.empty()) moveUnit(items, moved);
    count += moved.size();
    items.clear();
    moved.clear();
  };
  scan.run(
      [&](const RecordView& record, LogScan::Known) {
        if (!record.isSound()) return;
        record.forEachMessage([&](Place at, const ItemHeader& item, std::string_view payload) {
          const auto found = named.find(at.packed());
          if (found == named.end() || crc32c(payload) != item.crc) return;
          addCopy(items, record, at, item, payload);
          moved.push_back(found->second);
          if (items.size() >= kMostMoved) flush();
        });
      },
      [](auto, auto) {});
  flush();
  return count;
}

void Reclaim::addCopy(std::string& items, const RecordView& record, Place at,
                      const ItemHeader& item, std::string_view payload) const {
  const OrderKey key = orderOf(record.header(), at, item, payload);
  const CopyOrigin origin{key.number, key.rank, at.packed(), record.header().generation};
  const std::string_view message = storedIn(item, payload);
  ItemHeader copy = item;
  copy.flags |= kItemCopied;
  copy.size = static_cast<std::uint32_t>(sizeof origin + message.size());
  copy.crc = crc32c(message, crc32c({reinterpret_cast<const char*>(&origin), sizeof origin}));
  items.append(reinterpret_cast<const char*>(&copy), sizeof copy);
  items.append(reinterpret_cast<const char*>(&origin), sizeof origin).append(message);
  items.resize(padded8(items.size()));
}

/// The index names the copies once they are on the disk. What somebody has taken meanwhile stays
/// where it was, and its copy is void.
void Reclaim::moveUnit(const std::string& items, const std::vector<Named>& moved) {
  const std::lock_guard writes(m_writer.mutex());
  ConnectionSlot& mine = m_runtime.connection(m_connection);
  const std::uint64_t number = m_runtime.nextNumber();
  mine.copyPlace = 0;
  mine.copyNumber = number;
  if (write(number, {}, items, &mine.copyPlace) != LogWriter::Result::kDone)
    throw Failure(BXRC_STORAGE_FULL, "old messages cannot be moved");
  BXM_KILL_POINT("move-written");
  const std::vector<TakeGroup> refused = enterCopies(items, moved);
  m_writer.done();
  if (!refused.empty()) {
    if (write(m_runtime.nextNumber(), refused, {}, nullptr) != LogWriter::Result::kDone)
      throw Failure(BXRC_STORAGE_FULL, "old messages cannot be moved");
    dropLive(m_runtime, refused);
    m_writer.done();
  }
  mine.copyPlace = 0;
}

/// Returns the copies that are void.
std::vector<TakeGroup> Reclaim::enterCopies(const std::string& items,
                                            const std::vector<Named>& moved) {
  std::vector<TakeGroup> refused;
  auto piece = m_writer.pieces().begin();
  std::uint32_t at = 0;
  auto next = moved.begin();
  forEachItem(items, [&](const ItemHeader& item, std::string_view) {
    while (at == piece->size) {
      ++piece;
      at = 0;
    }
    const Place place{piece->items.file, piece->items.offset + at};
    if (!enterCopy(*next, place)) addTake(refused, place, piece->generation, TakeKind::kVoid);
    BXM_KILL_POINT("move-entry");
    m_runtime.file(place.file).total.fetch_add(1);
    at += static_cast<std::uint32_t>(itemSize(item.size));
    ++next;
  });
  return refused;
}

bool Reclaim::enterCopy(const Named& original, Place place) const {
  std::uint64_t seen = original.word;
  FileSlot& from = m_runtime.file(Entry::placeOf(seen).file);
  const Generation generation = from.generation.load();
  const bool expires = (seen & Entry::kExpires) != 0;
  if (!original.entry->compare_exchange_strong(seen, Entry::available(place, expires)))
    return false;
  dropLive(from, generation, 1);
  return true;
}

} // namespace

void reclaim(LogStore& store, LogWriter& writer, std::uint32_t connection) {
  Reclaim(store, writer, connection).run();
}

} // namespace bxm
