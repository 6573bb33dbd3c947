#include "manager/store/log/recovery.h"

#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/store/log/log_scan.h"
#include "manager/store/log/publication.h"
#include "manager/store/log/waiting.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace bxm {

namespace {

/// The bytes of the record at a place; empty when there is none.
std::string recordAt(LogFiles& files, Place place) {
  const auto file = files.reader(place.file);
  if (!file) return {};
  const Generation generation = files.runtime().file(place.file).generation.load();
  RecordHeader header;
  if (file->read(&header, sizeof header, place.offset) != sizeof header ||
      !RecordView::isHeader(header, place, files.storeId(), generation) ||
      place.offset + std::uint64_t{header.length} > file->size())
    return {};
  std::string bytes(header.length, '\0');
  bytes.resize(file->read(bytes.data(), bytes.size(), place.offset));
  return bytes;
}

} // namespace

void visitPiece(LogFiles& files, Place place, const std::function<void(const RecordView&)>& visit) {
  const std::string bytes = recordAt(files, place);
  const Generation generation = files.runtime().file(place.file).generation.load();
  if (const auto view = RecordView::at(bytes, place, files.storeId(), generation)) visit(*view);
}

std::vector<Place> piecesOf(LogFiles& files, Place last, std::uint64_t number) {
  std::vector<Place> places;
  std::uint64_t next = last.packed();
  bool whole = last.offset != 0;
  while (whole && next != 0) {
    const Place place = Place::unpacked(next);
    whole = false;
    visitPiece(files, place, [&](const RecordView& record) {
      const RecordHeader& header = record.header();
      whole = header.number == number && record.isWhole() &&
              (!places.empty() || (header.flags & RecordHeader::kFinal) != 0);
      next = header.previous;
    });
    places.insert(places.begin(), place);
  }
  return whole ? places : std::vector<Place>();
}

namespace {

/// One dead connection.
class Recovery {
public:
  Recovery(LogStore& store, LogWriter& writer, std::uint32_t slot)
      : m_store(store), m_runtime(store.runtime()), m_writer(writer), m_slot(slot),
        m_dead(store.runtime().connection(slot)) {
    for (std::uint32_t i = 0; i < m_runtime.accessLimit(); ++i)
      if (m_runtime.access(i).connection.load() == slot + 1)
        m_accesses.push_back(&m_runtime.access(i));
  }

  void run() {
    finishSingles();
    if (m_dead.phase.load() == Phase::kWriting) finishUnit();
    if (m_dead.phase.load() == Phase::kConsuming) finishTakes();
    m_dead.phase = Phase::kNone;
    BXM_KILL_POINT("recover-decided");
    undoMoves();
    giveBackEntries();
    BXM_KILL_POINT("recover-freed");
    settle();
    BXM_KILL_POINT("recover-settled");
    m_store.queues().recover(m_slot);
    releaseFiles();
    for (AccessSlot* access : m_accesses) {
      access->puts = access->committed.load();
      access->connection = 0;
    }
  }

private:
  void finishSingles();
  void finishUnit();
  using Places = std::unordered_set<std::uint64_t>; ///< packed
  void flush(const std::vector<Place>& pieces) const;
  Places publish(const std::vector<Place>& pieces);
  void markGone(QueueShare& share, const Places& taken) const;
  void finishTakes();
  void undoMoves();
  void giveBackEntries();
  void settle();
  void releaseFiles();
  using Closed = std::map<std::uint64_t, bool>;
  LogScan scanOf(std::uint32_t number) const;
  void findUnits(std::uint32_t number, Closed& closed) const;
  bool findEnd(std::uint32_t number, const Closed& closed) const;
  void releaseCleaned(std::uint32_t number, bool usable);
  std::shared_ptr<QueueShare> shareOf(const AccessSlot& access) {
    return m_store.share(access.queueId.load());
  }
  void log(const std::vector<TakeGroup>& takes);

  LogStore& m_store;
  Runtime& m_runtime;
  LogWriter& m_writer;
  const std::uint32_t m_slot;
  ConnectionSlot& m_dead;
  std::vector<AccessSlot*> m_accesses;
};

/// A get outside of units of work: the entry says whether it was done.
void Recovery::finishSingles() {
  for (AccessSlot* access : m_accesses) {
    const std::uint64_t single = access->single.load();
    const auto share = shareOf(*access);
    if (single == 0 || !share) continue;
    const int priority = priorityIn(single - 1);
    if (priority >= kPriorities || !share->index.mayHold(priority) ||
        sequenceIn(single - 1) >= share->index.readyOf(priority))
      continue; // damaged
    const auto word = share->index.entry(single - 1).load();
    if (Entry::belongsTo(word, Entry::kConsumed, m_slot) ||
        Entry::belongsTo(word, Entry::kGone, m_slot))
      access->gets = access->getsNext.load();
    access->single = 0;
  }
}

void Recovery::finishUnit() {
  const auto pieces =
      piecesOf(m_store.files(), Place::unpacked(m_dead.place.load()), m_dead.number.load());
  if (pieces.empty()) return;
  flush(pieces);
  const Places taken = publish(pieces);
  BXM_KILL_POINT("recover-published");
  for (AccessSlot* access : m_accesses) {
    const auto share = shareOf(*access);
    if (share && !taken.empty()) markGone(*share, taken);
    access->gets = access->getsNext.load();
    access->committed = access->committedNext.load();
  }
}

void Recovery::flush(const std::vector<Place>& pieces) const {
  for (const Place& place : pieces) {
    const auto file = m_store.files().reader(place.file);
    if (const int error = file ? file->sync() : ENOENT)
      failWithErrno(error, BXRC_UNEXPECTED, "cannot sync a log file");
  }
  m_store.folder().sync();
}

/// Returns where what the unit has taken stands.
Recovery::Places Recovery::publish(const std::vector<Place>& pieces) {
  Publication publication(m_store, m_dead);
  Places taken;
  for (const Place& place : pieces)
    visitPiece(m_store.files(), place, [&](const RecordView& record) {
      record.forEachMessage([&](Place at, const ItemHeader& item, std::string_view payload) {
        publication.add(at, item, payload);
      });
      record.forEachTakeGroup([&](const TakeGroup& group) {
        for (const std::uint32_t offset : group.offsets)
          taken.insert(Place{group.file, offset}.packed());
      });
    });
  publication.announce();
  return taken;
}

void Recovery::markGone(QueueShare& share, const Places& taken) const {
  share.index.forEach([&](int, std::uint64_t, QueueIndex::Word& entry) {
    const std::uint64_t word = entry.load();
    const Place place = Entry::placeOf(word);
    if (!Entry::belongsTo(word, Entry::kTaken, m_slot) || !taken.contains(place.packed())) return;
    entry = Entry::with(word, Entry::kGone, m_slot);
    FileSlot& file = m_runtime.file(place.file);
    dropLive(file, file.generation.load(), 1);
  });
}

void Recovery::finishTakes() {
  for (AccessSlot* access : m_accesses) {
    if (const auto share = shareOf(*access))
      share->index.forEach([&](int, std::uint64_t, QueueIndex::Word& entry) {
        const std::uint64_t word = entry.load();
        if (Entry::belongsTo(word, Entry::kTaken, m_slot))
          entry = Entry::with(word, Entry::kConsumed, m_slot);
      });
    access->gets = access->getsNext.load();
  }
}

/// Messages that were to be moved: what the index does not name of the copies is not one of them.
void Recovery::undoMoves() {
  if (m_dead.copyPlace.load() == 0) return;
  const std::uint64_t number = m_dead.copyNumber.load();
  const auto pieces = piecesOf(m_store.files(), Place::unpacked(m_dead.copyPlace.load()), number);
  std::map<std::uint64_t, std::uint64_t> copies; // with what they were made of
  for (const Place& place : pieces)
    visitPiece(m_store.files(), place, [&](const RecordView& record) {
      record.forEachMessage([&](Place at, const auto&, std::string_view payload) {
        copies[at.packed()] = originOf(payload).place;
      });
    });
  if (!copies.empty()) {
    std::unordered_map<std::uint64_t, bool> named;
    for (const auto& [packed, origin] : copies) named[packed] = named[origin] = false;
    m_store.forEachEntry([&](const auto&, QueueIndex::Word& entry) {
      const auto found = named.find(Entry::placeOf(entry.load()).packed());
      if (found != named.end()) found->second = true;
    });
    std::vector<TakeGroup> takes;
    for (const auto& [packed, origin] : copies) {
      const Place place = Place::unpacked(packed);
      if (!named.at(packed)) // where the origin is not, either, the message is gone
        addTake(takes, m_runtime, place, named.at(origin) ? TakeKind::kVoid : TakeKind::kTaken);
    }
    log(takes);
  }
  m_dead.copyPlace = 0;
}

/// Also of entries that are available already their owner, or an earlier recoverer, may have died
/// before it lowered the floor.
void Recovery::giveBackEntries() {
  for (AccessSlot* access : m_accesses) {
    const auto share = shareOf(*access);
    if (!share) continue;
    std::array<std::uint64_t, kPriorities> lowest;
    lowest.fill(UINT64_MAX);
    share->index.forEach([&](int priority, std::uint64_t sequence, QueueIndex::Word& entry) {
      const std::uint64_t word = entry.load();
      auto& low = lowest[static_cast<std::size_t>(priority)];
      if (Entry::belongsTo(word, Entry::kTaken, m_slot)) {
        entry = Entry::with(word, Entry::kAvailable, 0);
        BXM_KILL_POINT("recover-entry");
      } else if (Entry::stateOf(word) != Entry::kAvailable) {
        return;
      }
      low = std::min(low, sequence);
    });
    for (int priority = 0; priority < kPriorities; ++priority)
      if (const auto low = lowest[static_cast<std::size_t>(priority)]; low != UINT64_MAX)
        lowerFloor(share->index.of(priority).floor, low);
    announceArrival(share->slot);
  }
}

/// What it had got for good and not logged.
void Recovery::settle() {
  std::vector<TakeGroup> takes;
  std::vector<QueueIndex::Word*> consumed;
  std::vector<std::shared_ptr<QueueShare>> shares;
  for (AccessSlot* access : m_accesses) {
    const auto share = shareOf(*access);
    if (!share) continue;
    shares.push_back(share);
    share->index.forEach([&](int, std::uint64_t, QueueIndex::Word& entry) {
      const std::uint64_t word = entry.load();
      if (!Entry::belongsTo(word, Entry::kConsumed, m_slot)) return;
      const Place place = Entry::placeOf(word);
      addTake(takes, m_runtime, place);
      consumed.push_back(&entry);
    });
  }
  if (consumed.empty()) return;
  log(takes);
  for (QueueIndex::Word* entry : consumed)
    *entry = Entry::with(entry->load(), Entry::kGone, m_slot);
  dropLive(m_runtime, takes);
}

void Recovery::log(const std::vector<TakeGroup>& takes) {
  if (takes.empty()) return;
  const std::lock_guard writes(m_writer.mutex());
  const LogWriter::Runs none = [](const auto&) {};
  BXLONG reason = BXRC_NONE;
  if (m_writer.write({m_runtime.nextNumber(), takes, none, nullptr}, reason) !=
      LogWriter::Result::kDone)
    throw Failure(reason, "what a dead process had got cannot be written to the log");
  m_writer.done();
}

/// What it was writing when it died has its end in one of its files, or none. That is found anew,
/// also by who comes after a recoverer that died.
void Recovery::releaseFiles() {
  std::vector<std::uint32_t> owned;
  Closed closed;
  for (std::uint32_t number = 0; number < m_runtime.fileLimit(); ++number) {
    const FileState state = FileState::unpacked(m_runtime.file(number).state.load());
    if (state.owner != m_slot) continue;
    if (state.kind == FileKind::kCleaning) releaseCleaned(number, false);
    if (state.kind != FileKind::kOwned) continue;
    owned.push_back(number);
    findUnits(number, closed);
  }
  // All of them before the first is anybody's again.
  std::vector<bool> usable;
  for (const std::uint32_t number : owned) usable.push_back(findEnd(number, closed));
  for (std::size_t i = 0; i < owned.size(); ++i) releaseCleaned(owned[i], usable[i]);
}

LogScan Recovery::scanOf(std::uint32_t number) const {
  const std::string name = LogFiles::fileName(number);
  return {m_store.folder().open(name, Folder::Access::kRead), number, m_store.files().storeId()};
}

void Recovery::findUnits(std::uint32_t number, Closed& closed) const {
  const std::uint32_t end = m_runtime.file(number).end.load();
  scanOf(number).run(
      [&](const RecordView& record, LogScan::Known known) {
        if (known == LogScan::Known::kSealed) return;
        const bool written = record.place().offset < end || record.isWhole();
        bool& counts = closed[record.header().number];
        counts = counts || (written && (record.header().flags & RecordHeader::kFinal) != 0);
      },
      [](auto, auto) {});
}

/// Where the next record goes: behind a unit that counts, whose pieces a seal has to cover before
/// anything else of the unit may go, or before one that does not. That is not to be written over: a
/// reader that reads ahead may have seen it. False then.
bool Recovery::findEnd(std::uint32_t number, const Closed& closed) const {
  FileSlot& slot = m_runtime.file(number);
  const LogScan scan = scanOf(number);
  if (!scan.hasHeader() || scan.generation() != slot.generation.load()) return true;
  bool usable = true;
  std::uint32_t end = slot.end.load();
  scan.run(
      [&](const RecordView& record, LogScan::Known known) {
        const std::uint32_t at = record.place().offset;
        if (known == LogScan::Known::kSealed) return;
        const bool counts = closed.at(record.header().number);
        usable = usable && counts;
        if (!counts)
          end = std::min(end, at);
        else if (at == end && record.isWhole())
          end = at + record.header().length;
      },
      [](auto, auto) {});
  slot.end = end;
  const File file = m_store.folder().open(LogFiles::fileName(number), Folder::Access::kWrite);
  const Seal seal = makeSeal(scan.generation(), end);
  int error = file ? file.write(&seal, sizeof seal, kSealAt) : ENOENT;
  if (!error) error = file.sync();
  if (error) failWithErrno(error, BXRC_UNEXPECTED, "cannot write a log file");
  return usable;
}

/// A file that it was making, or emptying, may be on the disk with another generation than the slot
/// says, or not at all.
void Recovery::releaseCleaned(std::uint32_t number, bool usable) {
  FileSlot& slot = m_runtime.file(number);
  const auto file = m_store.folder().open(LogFiles::fileName(number), Folder::Access::kRead);
  std::string bytes(sizeof(FileHeader), '\0');
  if (file) file.read(bytes.data(), bytes.size(), 0);
  const auto header = decodeFileHeader(bytes, number, m_store.files().storeId());
  if (file && header && header->generation == slot.generation.load())
    m_store.files().release(number, usable);
  else if (file && liveIn(slot) > 0)
    slot.state = FileState{FileKind::kBroken, 0}.packed();
  else
    m_store.files().makeFree(number);
}

} // namespace

bool recoverDead(LogStore& store, LogWriter& writer) {
  bool any = false;
  Runtime& runtime = store.runtime();
  for (std::uint32_t slot = 0; slot < runtime.connectionLimit(); ++slot) {
    const StopSignalsWait stopsWait; // whoever is claimed counts as alive
    if (!runtime.claimDead(slot)) continue;
    try {
      Recovery(store, writer, slot).run();
    } catch (const std::exception&) {
      runtime.abandonConnection(slot); // another try is due when the store can write again
      continue;
    }
    runtime.releaseConnection(slot);
    any = true;
  }
  if (any) runtime.recountWanted() = 1;
  return any;
}

} // namespace bxm
