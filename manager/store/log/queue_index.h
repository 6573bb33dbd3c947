#pragma once

#include "manager/store/log/folder.h"
#include "manager/store/log/format.h"
#include "manager/store/log/runtime.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>

namespace bxm {

/// A message in the index, one word:
///   bits 0-2 state | bit 3 expires | bits 4-15 owner, a connection slot | bits 16-63 place
///
///   empty ──commit of the put──▶ available ──claim──▶ taken ──commit──▶ consumed ──logged──▶ gone
///                                     ◀──backout, death──┘ └──commit that logs──────────────▲
///
/// Only who has claimed a message may do more with it than claim it; who reclaims space may change
/// an available one's place. Gone ones keep their place: a recovery looks for it.
struct Entry {
  enum State : std::uint64_t {
    kEmpty = 0,
    kAvailable = 1,
    kTaken = 2,
    kConsumed = 3,
    kGone = 4,
    kDamaged = 5, ///< was found to be unreadable; told once, and left where it is
  };
  static constexpr std::uint64_t kExpires = 8;

  static State stateOf(std::uint64_t word) { return static_cast<State>(word & 7); }
  static std::uint32_t ownerOf(std::uint64_t word) {
    return static_cast<std::uint32_t>(word >> 4) & 0xFFF;
  }
  static Place placeOf(std::uint64_t word) { return Place::unpacked(word >> 16); }
  static std::uint64_t available(Place place, bool expires) {
    return place.packed() << 16 | (expires ? kExpires : 0) | kAvailable;
  }
  static std::uint64_t with(std::uint64_t word, State state, std::uint32_t owner) {
    return (word & ~std::uint64_t{0xFFF7}) | state | std::uint64_t{owner} << 4;
  }
  static bool belongsTo(std::uint64_t word, State state, std::uint32_t owner) {
    return stateOf(word) == state && ownerOf(word) == owner;
  }
};

/// A place in a queue in one word: priority << 56 | sequence.
constexpr std::uint64_t packedPosition(int priority, std::uint64_t sequence) {
  return static_cast<std::uint64_t>(priority) << 56 | sequence;
}
constexpr int priorityIn(std::uint64_t position) { return static_cast<int>(position >> 56); }
constexpr std::uint64_t sequenceIn(std::uint64_t position) {
  return position & ((std::uint64_t{1} << 56) - 1);
}

/// The first page of an index file. It belongs to the queue and not to its slot, which others use
/// again: a process that was stopped over a deleted queue does no harm.
struct PrioritySlot {
  /// generation << 48 | sequence: every message below is unavailable. Lowering it changes the
  /// generation, so that a scan which saw the older state cannot raise it again.
  std::atomic<std::uint64_t> floor;
  std::atomic<std::uint64_t> base;     ///< what is below is gone and given back
  std::atomic<std::uint64_t> tail;     ///< all below is filled; what is above may be
  std::atomic<std::uint64_t> promised; ///< entries that commits in progress may need, tail included
  std::atomic<std::uint64_t> ready;    ///< up to here the file may be touched
};

/// Raises or lowers a floor as described above.
void raiseFloor(std::atomic<std::uint64_t>& floor, std::uint64_t seen, std::uint64_t sequence);
void lowerFloor(std::atomic<std::uint64_t>& floor, std::uint64_t sequence);
constexpr std::uint64_t floorSequence(std::uint64_t word) {
  return word & ((std::uint64_t{1} << 48) - 1);
}

/// The index of one queue as this process has it mapped: for each priority an array of entries, in
/// the file index-<queue id>-<priority>, behind a PrioritySlot. Thread-safe.
class QueueIndex {
public:
  using Word = std::atomic<std::uint64_t>;
  QueueIndex(const Folder& folder, QueueSlot& slot, std::uint32_t queueId);
  ~QueueIndex();
  QueueIndex(const QueueIndex&) = delete;
  QueueIndex& operator=(const QueueIndex&) = delete;

  /// False when no message of the priority has ever been on the queue.
  bool mayHold(int priority) const {
    return (m_slot.priorities.load(std::memory_order_relaxed) & (1U << priority)) != 0;
  }
  PrioritySlot& of(int priority) const {
    PrioritySlot* const known = m_slots[static_cast<std::size_t>(priority)].load();
    return known ? *known : mapSlot(priority);
  }

  /// Promises room for so many entries, so that entering them cannot fail. Throws Failure 2056,
  /// 2102. What is not entered is to be given back.
  void promise(int priority, std::uint64_t count);
  void giveBack(int priority, std::uint64_t count);
  /// Enters a message behind all others of its priority, in the first entry that is empty. attempt,
  /// where given, names each entry before it is tried. Returns its sequence.
  std::uint64_t enter(int priority, std::uint64_t word, std::atomic<std::uint64_t>* attempt);

  /// An entry below ready.
  Word& entry(int priority, std::uint64_t sequence) const;
  /// The same, by a packed position.
  Word& entry(std::uint64_t position) const {
    return entry(priorityIn(position), sequenceIn(position));
  }
  /// Of an entry whose message's end is on the disk. Gives memory back now and then.
  void markGone(std::uint64_t position, std::uint32_t owner);
  /// Up to here the file may be touched: what the slot says, as far as the file goes.
  std::uint64_t readyOf(int priority) const;
  /// Behind what may be filled: others may have entered messages without having said so yet.
  std::uint64_t endOf(int priority) const;
  /// Gives memory back of which all entries are gone.
  void trim(int priority);
  /// Calls visit(priority, sequence, entry) for all entries that are still there.
  template <typename Visit>
  void forEach(Visit visit) const {
    for (int priority = kPriorities - 1; priority >= 0; --priority) {
      if (!mayHold(priority)) continue;
      for (std::uint64_t i = of(priority).base.load(), tail = endOf(priority); i < tail;) {
        Word* const words = &entry(priority, i);
        const std::uint64_t windowEnd = std::min(tail, (i / kWindow + 1) * kWindow);
        for (const std::uint64_t begin = i; i < windowEnd; ++i)
          visit(priority, i, words[i - begin]);
      }
    }
  }

  static std::string fileName(std::uint32_t queueId, int priority);
  static bool isFileName(const std::string& name) { return name.starts_with("index-"); }
  static void remove(const Folder& folder, std::uint32_t queueId);

  static constexpr std::uint64_t kWindow = 131072; ///< entries mapped at once: 1 MiB

private:
  const File& file(int priority) const;
  [[noreturn]] void failGone(int priority) const;
  PrioritySlot& mapSlot(int priority) const;
  Word* window(int priority, std::uint64_t number) const;
  void mapFor(int priority, std::uint64_t count, std::uint64_t end);
  void letGoOfPages() const;

  const Folder& m_folder;
  QueueSlot& m_slot;
  const std::uint32_t m_queueId;
  mutable std::mutex m_mutex; ///< guards what follows
  mutable std::array<File, kPriorities> m_files;
  mutable std::array<std::atomic<PrioritySlot*>, kPriorities> m_slots{};
  mutable std::array<std::atomic<std::uint64_t>, kPriorities> m_room{}; ///< seen in the file
  struct Window {
    Word* words;
    bool touched = false;
  };
  mutable std::map<std::uint64_t, Window> m_windows; ///< by priority << 56 | number
  mutable std::size_t m_touched = 0;                 ///< how many of them
  /// The window that was asked for last, for each priority; a map's elements stay where they are.
  using Mapped = std::map<std::uint64_t, Window>::value_type;
  mutable std::array<std::atomic<const Mapped*>, kPriorities> m_latest{};
};

} // namespace bxm
