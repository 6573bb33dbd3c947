#include "manager/store/log/log_writer.h"

#include "bx/bx.h"
#include "manager/base/bytes.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"

#include <algorithm>

namespace bxm {

namespace {

constexpr std::uint32_t kHeaderSize = sizeof(RecordHeader);
/// What is copied to go with its header in one call.
constexpr std::size_t kMostCopied = 64 << 10;
constexpr std::uint32_t kLeastAhead = 64 << 10, kMostAhead = 1 << 20;

} // namespace

/// Of a unit, what is not written yet.
struct LogWriter::Rest {
  std::string_view run;
  bool lastRun = true;
  std::size_t group = 0;   ///< the next one
  std::uint32_t takes = 0; ///< of the piece: the bytes of its take groups, which are in the buffer
  // The items of the piece.
  std::string_view items;
  std::uint32_t count = 0;
  std::uint32_t crc = 0;
};

bool LogWriter::close() {
  done();
  const bool sealed = m_full.empty() && !m_left;
  if (sealed) letGo();
  abandon();
  return sealed;
}

void LogWriter::abandon() {
  m_full.clear();
  m_held.clear();
  m_owned = {};
}

void LogWriter::letGo() {
  if (!m_owned.file) return;
  seal(m_owned); // says what is on the disk, and need not be there itself
  BXM_KILL_POINT("file-closed");
  m_files.release(m_owned.number, true);
  m_owned = {};
}

/// What the seal covers counts, also when the last piece of its unit is in a file that has been
/// freed since. 0 or errno.
int LogWriter::seal(const LogFiles::Owned& owned) const {
  const Seal seal = makeSeal(owned.generation, slotOf(owned).end.load());
  return owned.file->write(&seal, sizeof seal, kSealAt);
}

/// In the order in which they were written: a later one may tell that what is in an earlier one
/// counts, and who is let go of may be freed. False when the disk failed; it is tried again.
bool LogWriter::releaseFull() {
  for (auto owned = m_full.begin(); owned != m_full.end(); owned = m_full.erase(owned)) {
    if (seal(*owned) != 0 || owned->file->sync() != 0) return false;
    BXM_KILL_POINT("file-sealed");
    m_files.release(owned->number, true);
  }
  return true;
}

void LogWriter::done() {
  std::move(m_held.begin(), m_held.end(), std::back_inserter(m_full));
  m_held.clear();
  if (!releaseFull()) return;
  const bool onlyTakes =
      !m_pieces.empty() &&
      std::none_of(m_pieces.begin(), m_pieces.end(), [](const Piece& p) { return p.count > 0; });
  if (onlyTakes && m_files.countFree() == 0) letGo(); // it may be the only one that others can have
}

// ---- A unit of work -----------------------------------------------------------------------------

LogWriter::Result LogWriter::write(const Unit& unit, BXLONG& reason) {
  m_pieces.clear();
  m_previous = 0;
  m_count = 0;
  m_finalWritten = false;
  try {
    writePieces(unit);
    flush();
    expectInPlace();
    return Result::kDone;
  } catch (const std::exception& error) {
    reason = reasonOf(error);
  }
  const bool known = !m_finalWritten || voidFinal();
  forget();
  return known ? Result::kFailed : Result::kUnknown;
}

/// A unit's last piece is on the disk, perhaps: what makes it one is taken away.
bool LogWriter::voidFinal() {
  const char nothing[kHeaderSize] = {};
  return m_owned.file->write(nothing, sizeof nothing, Place::unpacked(m_previous).offset) == 0 &&
         m_owned.file->sync() == 0;
}

/// Of a unit that failed. No seal may cover its pieces; and nothing may be written over them, since
/// a reader that reads ahead may have seen them.
void LogWriter::forget() {
  for (auto piece = m_pieces.rbegin(); piece != m_pieces.rend(); ++piece) {
    FileSlot& slot = m_files.runtime().file(piece->record.file);
    slot.end = piece->record.offset;
    dropLive(slot, piece->generation, piece->count);
  }
  if (!m_pieces.empty()) m_held.push_back(std::exchange(m_owned, {}));
  const bool inOrder = releaseFull();
  for (const LogFiles::Owned& owned : m_held)
    if (inOrder) m_files.release(owned.number, false);
  m_left = m_left || !inOrder;
  m_held.clear();
  m_pieces.clear();
  m_unflushed = false;
}

void LogWriter::writePieces(const Unit& unit) {
  Rest rest;
  const auto isLeft = [&] { return !rest.run.empty() || rest.group < unit.takes.size(); };
  unit.runs([&](std::string_view run, bool last) {
    rest.run = run;
    rest.lastRun = last;
    while (last ? isLeft() : !rest.run.empty()) writePiece(unit, rest);
  });
  rest.lastRun = true;
  while (isLeft() || !m_finalWritten) writePiece(unit, rest);
}

/// As many takes and items as fit into the file.
void LogWriter::writePiece(const Unit& unit, Rest& rest) {
  makeRoomFor(unit, rest);
  FileSlot& slot = slotOf(m_owned);
  raiseTo(slot.lastNumber, unit.number);
  const std::size_t room = m_owned.capacity - slot.end.load() - kHeaderSize;
  chooseTakes(unit, rest, room);
  chooseItems(rest, room - rest.takes);
  const bool final = rest.lastRun && rest.run.empty() && rest.group == unit.takes.size();
  if (final && m_count > 0) flush(); // it says that the others are there
  const Place place{m_owned.number, slot.end.load()};
  m_pieces.push_back({place,
                      {place.file, place.offset + kHeaderSize + rest.takes},
                      static_cast<std::uint32_t>(rest.items.size()),
                      rest.count,
                      m_owned.generation});
  addLive(slot, rest.count);
  if (unit.place) *unit.place = place.packed();
  append(headerOf(unit, rest, place, final), rest.items, place);
  m_previous = place.packed();
  m_finalWritten = final;
  ++m_count;
}

/// For the next group of takes, or the next item, at the least.
void LogWriter::makeRoomFor(const Unit& unit, const Rest& rest) {
  const bool hasTakes = rest.group < unit.takes.size();
  const std::size_t first = hasTakes           ? takesSize(unit.takes[rest.group])
                            : rest.run.empty() ? 0
                                               : itemSize(itemHeaderAt(rest.run.data()).size);
  makeRoom(unit.number, static_cast<std::uint32_t>(kHeaderSize + first),
           kHeaderSize + first + rest.run.size(), rest.run.empty());
}

/// Into the buffer, behind a place for the header.
void LogWriter::chooseTakes(const Unit& unit, Rest& rest, std::size_t room) {
  m_buffer.assign(kHeaderSize, '\0');
  while (rest.group < unit.takes.size() && takesSize(unit.takes[rest.group]) <= room) {
    appendTakes(m_buffer, unit.takes[rest.group]);
    room -= takesSize(unit.takes[rest.group++]);
    slotOf(m_owned).takes.fetch_add(1);
  }
  rest.takes = static_cast<std::uint32_t>(m_buffer.size() - kHeaderSize);
  rest.crc = crc32c({m_buffer.data() + kHeaderSize, rest.takes});
}

void LogWriter::chooseItems(Rest& rest, std::size_t room) {
  std::size_t size = 0;
  rest.count = 0;
  while (size < rest.run.size()) {
    const char* const item = rest.run.data() + size;
    const ItemHeader header = itemHeaderAt(item);
    const std::size_t next = itemSize(header.size);
    if (size + next > room) break;
    if (header.flags & kItemCopied)
      slotOf(m_owned).takes.fetch_add(1); // it stands for its origin's
    rest.crc = crc32c({item, sizeof(ItemHeader)}, rest.crc);
    size += next;
    ++rest.count;
  }
  rest.items = rest.run.substr(0, size);
  rest.run.remove_prefix(size);
}

RecordHeader LogWriter::headerOf(const Unit& unit, const Rest& rest, Place place,
                                 bool final) const {
  RecordHeader header;
  header.length = static_cast<std::uint32_t>(kHeaderSize + rest.takes + rest.items.size());
  header.takesSize = rest.takes;
  header.storeId = m_files.storeId();
  header.number = unit.number;
  header.generation = m_owned.generation;
  header.place = place.packed();
  header.previous = m_previous;
  header.piece = m_count;
  header.flags = final ? RecordHeader::kFinal : 0;
  sealRecord(header, rest.crc);
  return header;
}

// ---- The file -----------------------------------------------------------------------------------

void LogWriter::makeRoom(std::uint64_t number, std::uint32_t needed, std::size_t wanted,
                         bool forTakes) {
  if (m_owned.file && m_files.grow(m_owned, wanted) >= needed) return expectInPlace();
  if (m_unflushed) flush();
  const LogFiles::Owned next = m_files.claim({m_connection, number, needed, forTakes});
  if (m_owned.file) m_held.push_back(m_owned);
  m_owned = next;
  m_files.grow(m_owned, wanted);
  if (m_count == 0) done(); // nothing of the unit is in what was held
  expectInPlace();
}

void LogWriter::append(const RecordHeader& header, std::string_view items, Place place) {
  BXM_KILL_POINT("append-begin");
  std::memcpy(m_buffer.data(), &header, sizeof header);
  std::size_t together = items.size() <= kMostCopied ? items.size() : 0;
  m_buffer.append(items.substr(0, together));
  m_unflushed = true;
  const File& file = *m_owned.file;
  int error = file.write(m_buffer.data(), m_buffer.size(), place.offset);
  BXM_KILL_POINT("append-header");
  if (!error && together < items.size())
    error = file.write(items.data(), items.size(), place.offset + m_buffer.size());
  if (error)
    failWithErrno(error, BXRC_UNEXPECTED,
                  "cannot write " + m_files.folder().pathOf(LogFiles::fileName(place.file)));
  FileSlot& slot = slotOf(m_owned);
  slot.end = place.offset + header.length;
  BXM_KILL_POINT("append-end");
  zeroAhead(slot, header.length);
}

/// Zeros ahead of small records: a flush that needs new blocks of the file system waits for its
/// journal, too.
void LogWriter::zeroAhead(FileSlot& slot, std::uint32_t length) const {
  static constexpr char kZeros[kLeastAhead] = {};
  const std::uint32_t end = slot.end.load();
  if (end <= slot.allocated.load()) return;
  std::uint32_t at = end;
  if (length < kLeastAhead) {
    const std::uint32_t until =
        std::min(m_owned.capacity, end + std::clamp(end - kDataStart, kLeastAhead, kMostAhead));
    for (std::uint32_t n = 0; at < until; at += n) {
      n = std::min(until - at, kLeastAhead);
      if (m_owned.file->write(kZeros, n, at) != 0) break; // it only would have been faster
    }
  }
  slot.allocated = at;
}

void LogWriter::flush() {
  BXM_KILL_POINT("flush-begin");
  if (const int error = m_owned.file->sync())
    failWithErrno(error, BXRC_UNEXPECTED,
                  "cannot write " + m_files.folder().pathOf(LogFiles::fileName(m_owned.number)));
  m_unflushed = false;
  BXM_KILL_POINT("flush-end");
}

/// What is written to a file that has been removed would be lost.
void LogWriter::expectInPlace() const {
  if (m_owned.file->isNamed() && m_files.runtime().isInPlace()) return;
  throw Failure(BXRC_CONNECTION_BROKEN,
                "the manager in " + m_files.folder().path() + " has been removed");
}

} // namespace bxm
