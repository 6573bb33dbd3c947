#include "manager/store/log/log_survey.h"

#include "manager/base/bytes.h"
#include "manager/store/log/log_files.h"
#include "manager/store/message.h"

#include <algorithm>

namespace bxm {

LogSurvey::LogSurvey(const Folder& folder, std::uint64_t storeId) : m_folder(folder) {
  for (const std::string& name : folder.list())
    if (const std::int64_t number = LogFiles::numberIn(name); number >= 0) {
      LogFile file;
      file.number = static_cast<std::uint32_t>(number);
      m_files.push_back(file);
    }
  std::sort(m_files.begin(), m_files.end(),
            [](const LogFile& a, const LogFile& b) { return a.number < b.number; });
  for (LogFile& file : m_files) {
    const File opened = folder.open(LogFiles::fileName(file.number), Folder::Access::kRead);
    if (opened) read(LogScan(opened, file.number, storeId), file);
  }
  decideUnits();
  decideCopies();
}

void LogSurvey::damage(std::uint32_t file, std::uint64_t at, const std::string& what) {
  m_damages.push_back(m_folder.pathOf(LogFiles::fileName(file)) + ", byte " + std::to_string(at) +
                      ": " + what);
}

// ---- Reading ------------------------------------------------------------------------------------

void LogSurvey::read(const LogScan& scan, LogFile& file) {
  file.generation = scan.generation();
  file.size = scan.size();
  file.sealed = scan.sealed();
  m_lastNumber = std::max(m_lastNumber, file.generation);
  if (file.generation == 0)
    damage(file.number, 0, "the header is damaged; the messages in the file are not served");
  else if (!scan.hasHeader())
    damage(file.number, 0, "the header is damaged; what it said is known from elsewhere");
  else if (file.size < kFileSize)
    damage(file.number, file.size, "the file has lost its end");
  file.end =
      scan.run([&](const RecordView& record, LogScan::Known known) { add(record, known, file); },
               [&](std::uint32_t begin, std::uint32_t end) {
                 damage(file.number, begin, std::to_string(end - begin) + " bytes are damaged");
               });
}

void LogSurvey::add(const RecordView& record, LogScan::Known known, LogFile& file) {
  const RecordHeader& header = record.header();
  m_lastNumber = std::max({m_lastNumber, header.number, header.generation});
  file.behind = std::max(file.behind, record.place().offset + header.length);
  const bool sound = record.isSound();
  // What nothing says to have been flushed may be a commit that never returned.
  if (known == LogScan::Known::kLast && !record.isWhole()) {
    m_torn.insert(header.place);
    return;
  }
  if (!sound) {
    damage(file.number, record.place().offset, "a commit's messages are damaged");
    return;
  }
  file.firstNumber = std::min(file.firstNumber, header.number);
  if (!isAlone(header)) {
    Unit& unit = m_units[header.number];
    unit.previous[header.place] = header.previous;
    if (header.flags & RecordHeader::kFinal) unit.last = header.place;
  }
  addTakes(record, file);
  if (file.generation != 0) addMessages(record, file);
}

/// A damaged file's takes are of whatever use of it: those of an earlier one name messages that are
/// not there any more.
void LogSurvey::addTakes(const RecordView& record, LogFile& file) {
  record.forEachTakeGroup([&](const TakeGroup& group) {
    ++file.takes;
    m_lastNumber = std::max(m_lastNumber, group.generation);
    if (!isAlone(record.header()) && !isSealed(record, file)) {
      m_units[record.header().number].takes.push_back(group);
      return;
    }
    mark(group);
  });
}

void LogSurvey::addMessages(const RecordView& record, LogFile& file) {
  std::uint64_t damaged = 0;
  record.forEachMessage([&](Place place, const ItemHeader& item, std::string_view payload) {
    ++file.total;
    m_used.insert(item.queue);
    const bool whole = crc32c(payload) == item.crc;
    if (!whole) ++damaged;
    if (item.flags & kItemCopied) ++file.takes;
    if (!(item.flags & kItemCopied) || !whole || payload.size() < sizeof(CopyOrigin)) return;
    const CopyOrigin origin = originOf(payload);
    const std::int64_t expiry =
        item.flags & kItemExpires ? messageExpiry(storedIn(item, payload)) : 0;
    m_copies.push_back({{origin.number, origin.rank},
                        record.header().number,
                        place,
                        record.header().generation,
                        Place::unpacked(origin.place),
                        origin.generation,
                        item.queue,
                        item.priority,
                        item.flags,
                        expiry,
                        isAlone(record.header()) || isSealed(record, file)});
  });
  if (damaged > 0)
    damage(file.number, record.place().offset, std::to_string(damaged) + " messages are damaged");
  m_damagedMessages += damaged;
}

// ---- Deciding -----------------------------------------------------------------------------------

bool LogSurvey::isMarked(const Marks& marks, Place place, Generation generation) {
  const auto found = marks.find({place.file, generation});
  return found != marks.end() && place.offset / 8 < found->second.size() &&
         found->second[place.offset / 8];
}

void LogSurvey::mark(Marks& marks, Place place, Generation generation) {
  auto& bits = marks[{place.file, generation}];
  if (bits.size() <= place.offset / 8)
    bits.resize(std::max<std::size_t>(kFileSize / 8, place.offset / 8 + 1));
  bits[place.offset / 8] = true;
}

void LogSurvey::mark(const TakeGroup& group) {
  for (const std::uint32_t offset : group.offsets)
    mark(group.kind == TakeKind::kVoid ? m_void : m_taken, {group.file, offset}, group.generation);
}

/// A unit's last piece is written when the others are on the disk: with it, the unit counts. What
/// is sealed counts without it.
void LogSurvey::decideUnits() {
  for (const auto& [number, unit] : m_units) decideUnit(number, unit);
  m_units.clear();
}

LogSurvey::LogFile* LogSurvey::fileOf(Place place) {
  const auto found = std::lower_bound(
      m_files.begin(), m_files.end(), place.file,
      [](const LogFile& file, std::uint32_t number) { return file.number < number; });
  return found != m_files.end() && found->number == place.file ? &*found : nullptr;
}

void LogSurvey::decideUnit(std::uint64_t number, const Unit& unit) {
  if (unit.last == 0) { // the next commits are written over it
    for (const auto& [packed, previous] : unit.previous)
      if (LogFile* const file = fileOf(Place::unpacked(packed));
          file && Place::unpacked(packed).offset >= file->sealed)
        file->end = std::min(file->end, Place::unpacked(packed).offset);
    return;
  }
  m_whole.insert(number);
  for (std::uint64_t place = unit.last; place != 0;) {
    const auto found = unit.previous.find(place);
    if (found == unit.previous.end()) {
      const Place missing = Place::unpacked(place);
      const LogFile* const file = fileOf(missing);
      // A file of a later generation has been freed since.
      if (file && file->generation < number)
        damage(missing.file, missing.offset, "a piece of a commit is missing");
      break;
    }
    place = found->second;
  }
  for (const TakeGroup& group : unit.takes) mark(group);
}

/// A message that was moved is gone when the take of any of its places says so; and as long as a
/// copy's origin is on the disk, the copy is.
void LogSurvey::decideCopies() {
  std::erase_if(m_copies, [&](const Copy& copy) {
    const bool counts = copy.isDecided || m_whole.contains(copy.number);
    return !counts || isMarked(m_void, copy.place, copy.generation);
  });
  std::sort(m_copies.begin(), m_copies.end(),
            [](const Copy& a, const Copy& b) { return a.number < b.number; });
  std::for_each(m_copies.rbegin(), m_copies.rend(), [&](const Copy& copy) {
    if (isMarked(m_taken, copy.place, copy.generation))
      mark(m_taken, copy.origin, copy.originGeneration);
  });
  for (const Copy& copy : m_copies) {
    if (isMarked(m_taken, copy.origin, copy.originGeneration))
      mark(m_taken, copy.place, copy.generation);
    mark(m_moved, copy.origin, copy.originGeneration);
  }
  std::erase_if(m_copies, [&](const Copy& copy) { return !isThere(copy.place, copy.generation); });
  std::sort(m_copies.begin(), m_copies.end(),
            [](const Copy& a, const Copy& b) { return a.key < b.key; });
}

} // namespace bxm
