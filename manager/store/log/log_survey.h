#pragma once

#include "manager/store/log/log_scan.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace bxm {

/// What all logs of a manager say together: which commits count, which messages were taken, what is
/// damaged. Messages themselves are not kept: who wants them goes through the files once more.
class LogSurvey {
public:
  LogSurvey(const Folder& folder, std::uint64_t storeId);

  struct LogFile {
    std::uint32_t number = 0;
    Generation generation = 0; ///< 0: its header is damaged
    std::uint64_t size = 0;
    std::uint32_t sealed = 0;
    std::uint32_t end = kDataStart;    ///< of what counts
    std::uint32_t behind = kDataStart; ///< the end of all records, whether they count or not
    std::uint32_t total = 0;
    std::uint32_t takes = 0;                ///< groups, and copies
    std::uint64_t firstNumber = UINT64_MAX; ///< of the commits in it
  };
  const std::vector<LogFile>& files() const { return m_files; }
  std::uint64_t lastNumber() const { return m_lastNumber; }
  /// Queues that have had messages.
  bool isUsed(std::uint32_t queue) const { return m_used.contains(queue); }
  /// In words, a line each.
  const std::vector<std::string>& damages() const { return m_damages; }
  std::uint64_t damagedMessages() const { return m_damagedMessages; }

  /// False for a piece of a unit of work that never was committed whole.
  bool counts(const RecordView& record, const LogFile& file) const {
    const RecordHeader& header = record.header();
    return isAlone(header) ? !m_torn.contains(header.place)
                           : isSealed(record, file) || m_whole.contains(header.number);
  }
  /// False for a message that was taken, or that has been moved elsewhere.
  bool isThere(Place place, Generation generation) const {
    return !isMarked(m_taken, place, generation) && !isMarked(m_moved, place, generation);
  }

  /// A message that was moved, in the order of the messages.
  struct Copy {
    OrderKey key;
    std::uint64_t number; ///< of the commit that moved it
    Place place;
    Generation generation;
    Place origin;
    Generation originGeneration;
    std::uint32_t queue;
    std::uint8_t priority;
    std::uint8_t flags;
    std::int64_t expiry;
    bool isDecided; ///< counts, whatever the rest of the unit that moved it
  };
  const std::vector<Copy>& copies() const { return m_copies; }

private:
  using Marks = std::map<std::pair<std::uint32_t, Generation>, std::vector<bool>>;
  struct Unit {                                      ///< of several pieces
    std::uint64_t last = 0;                          ///< packed place; 0: never closed
    std::map<std::uint64_t, std::uint64_t> previous; ///< of the places of its pieces
    std::vector<TakeGroup> takes;
  };

  static bool isAlone(const RecordHeader& header) {
    return header.piece == 0 && (header.flags & RecordHeader::kFinal) != 0;
  }
  static bool isSealed(const RecordView& record, const LogFile& file) {
    return record.place().offset + record.header().length <= file.sealed;
  }
  static bool isMarked(const Marks& marks, Place place, Generation generation);
  static void mark(Marks& marks, Place place, Generation generation);
  void mark(const TakeGroup& group);
  void read(const LogScan& scan, LogFile& file);
  void add(const RecordView& record, LogScan::Known known, LogFile& file);
  void addMessages(const RecordView& record, LogFile& file);
  void addTakes(const RecordView& record, LogFile& file);
  void decideUnits();
  void decideUnit(std::uint64_t number, const Unit& unit);
  LogFile* fileOf(Place place);
  void decideCopies();
  void damage(std::uint32_t file, std::uint64_t at, const std::string& what);

  const Folder& m_folder;
  std::vector<LogFile> m_files;
  std::uint64_t m_lastNumber = 0;
  std::set<std::uint32_t> m_used;
  std::set<std::uint64_t> m_torn;  ///< packed places of records that a power cut cut off
  std::set<std::uint64_t> m_whole; ///< commits of several pieces
  std::map<std::uint64_t, Unit> m_units;
  Marks m_taken, m_moved, m_void;
  std::vector<Copy> m_copies;
  std::vector<std::string> m_damages;
  std::uint64_t m_damagedMessages = 0;
};

} // namespace bxm
