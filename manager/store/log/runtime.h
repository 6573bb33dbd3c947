#pragma once

#include "manager/store/log/folder.h"
#include "manager/store/store.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

/// The shared memory of a manager: who is connected, which queues and log files there are, who has
/// put and got how many, who waits. A file that all processes map. It is made anew after a boot; it
/// must be right after the death of any process at any instruction, and no process may wait for
/// another: every change of state is one atomic store, what is counted has one writer, and there
/// are no locks but those by which the kernel tells who lives.
namespace bxm {

constexpr std::uint32_t kConnectionSlots = 4096;
constexpr std::uint32_t kAccessSlots = 8192;
constexpr std::uint32_t kQueueSlots = 16384;
constexpr std::uint32_t kFileSlots = 262144;
constexpr int kPriorities = 10;

/// What a connection is in the middle of: who finds it dead finishes it or undoes it.
enum class Phase : std::uint32_t {
  kNone = 0,
  kConsuming = 1, ///< a unit of work of gets counts: its entries are being brought up to that
  kWriting = 2,   ///< a unit is written at place: it counts if all of it is there
};

/// One connection. It is alive while its process holds the lock on the slot's byte of the file,
/// which the kernel releases at the process's death. Only its connection writes it.
struct alignas(64) ConnectionSlot {
  std::atomic<std::uint32_t> used;
  std::atomic<std::uint32_t> process; ///< for people who look
  std::atomic<Phase> phase;
  std::atomic<std::uint64_t> number;    ///< of the commit in progress
  std::atomic<std::uint64_t> place;     ///< of its latest piece
  std::atomic<std::uint64_t> published; ///< how many of its messages are in the index
  std::atomic<std::uint64_t> attempt;   ///< where the next one is being entered, + 1
  /// The same of a unit that moves messages, which its settling thread may write meanwhile.
  std::atomic<std::uint64_t> copyNumber, copyPlace;
};

/// One queue in use by one connection, or left to the next one that uses it with what it counted.
/// Only its connection writes it. A queue's depth is the sum of puts less gets.
struct alignas(64) AccessSlot {
  static constexpr std::uint32_t kReads = 1, kWrites = 2;
  std::atomic<std::uint32_t> connection; ///< slot + 1; 0 nobody
  std::atomic<std::uint32_t> queueSlot;
  std::atomic<std::uint32_t> queueId;                 ///< 0: the slot is free
  std::atomic<std::uint64_t> puts;                    ///< committed or not
  std::atomic<std::uint64_t> committed;               ///< of these
  std::atomic<std::uint64_t> gets;                    ///< that count
  std::atomic<std::uint64_t> committedNext, getsNext; ///< once the unit in progress counts
  std::atomic<std::uint32_t> uses;                    ///< kReads, kWrites
  std::atomic<std::uint64_t> single; ///< what a get outside of units is after: packed position + 1
};

/// QueueState: kind | owner << 8 | queue id << 32, changed by compare-and-swap alone.
enum class QueueKind : std::uint8_t {
  kFree = 0,
  kClaimed = 1,  ///< its maker fills it in
  kPrepared = 2, ///< on the disk; counts unless another of that name was first
  kLive = 3,
  kDeleting = 4, ///< found empty; a put may still revert it to live
  kDeleted = 5,  ///< decided; what it had is being removed
};
struct QueueState {
  QueueKind kind = QueueKind::kFree;
  std::uint16_t owner = 0; ///< connection slot, of all but live ones
  std::uint32_t id = 0;
  std::uint64_t packed() const {
    return static_cast<std::uint64_t>(kind) | std::uint64_t{owner} << 8 | std::uint64_t{id} << 32;
  }
  static QueueState unpacked(std::uint64_t bits) {
    return {static_cast<QueueKind>(bits & 0xFF), static_cast<std::uint16_t>(bits >> 8),
            static_cast<std::uint32_t>(bits >> 32)};
  }
};

/// One queue.
struct alignas(64) QueueSlot {
  std::atomic<std::uint64_t> state;
  std::atomic<std::uint32_t> nameHash;
  std::atomic<std::uint32_t> arrivals; ///< futex: changes when a message may have become available
  std::atomic<std::uint32_t> waiters;
  std::atomic<std::uint32_t> priorities;  ///< bit p: priority p may hold messages
  std::atomic<std::uint32_t> accesses;    ///< changes whenever one more connection uses the queue
  std::atomic<std::int64_t> nextExpiry;   ///< ms since 1970: nothing expires before; kNever
  std::atomic<std::uint32_t> alterations; ///< changes with the definition
  std::atomic<std::uint64_t> definition[24]; ///< see queue_table.h

  QueueState now() const { return QueueState::unpacked(state.load()); }
  static constexpr std::int64_t kNever = INT64_MAX;
  bool holds(std::uint32_t id) const {
    const QueueState seen = now();
    return seen.id == id && seen.kind >= QueueKind::kLive && seen.kind != QueueKind::kDeleted;
  }
};

/// FileSlot::state: kind | owner << 8, changed by compare-and-swap alone.
enum class FileKind : std::uint8_t {
  kAbsent = 0,
  kFree = 1,     ///< empty, and known to be on the disk
  kOwned = 2,    ///< its owner appends
  kIdle = 3,     ///< may be appended to
  kSealed = 4,   ///< full
  kCleaning = 5, ///< its owner looks whether it is empty
  kBroken = 6,   ///< its header is damaged: left as it is
};

/// One log file.
struct alignas(64) FileSlot {
  std::atomic<std::uint32_t> state;
  std::atomic<std::uint32_t> end;       ///< of what was appended
  std::atomic<std::uint32_t> allocated; ///< up to here a write needs no new block
  std::atomic<std::uint32_t> total;     ///< messages that were put into it
  std::atomic<std::uint32_t> takes;     ///< take groups and copies in it
  std::atomic<std::uint64_t> generation;
  /// Messages in it that are not gone, never fewer: low half of the generation << 32 | number.
  std::atomic<std::uint64_t> live;
  std::atomic<std::uint64_t> waitsGeneration; ///< a use of another file that it holds takes of
  std::atomic<std::uint32_t> waitsFile;
  std::atomic<std::uint64_t> lastNumber; ///< no commit in it has a higher one
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

class Runtime {
public:
  /// Opens the file, or makes it when it is of another boot, another store or another layout:
  /// rebuild is then called, under a lock that keeps everybody else out.
  Runtime(const Folder& folder, std::uint64_t storeId,
          const std::function<void(Runtime&)>& rebuild);
  ~Runtime();
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;

  // Many a slot's number comes from this memory itself: damage in it must not lead out of it.
  ConnectionSlot& connection(std::uint32_t slot) const {
    return m_layout->connections[slot % kConnectionSlots];
  }
  AccessSlot& access(std::uint32_t slot) const { return m_layout->accesses[slot % kAccessSlots]; }
  QueueSlot& queue(std::uint32_t slot) const { return m_layout->queues[slot % kQueueSlots]; }
  FileSlot& file(std::uint32_t slot) const { return m_layout->files[slot % kFileSlots]; }
  std::uint32_t connectionLimit() const {
    return std::min(m_layout->header.connectionLimit.load(), kConnectionSlots);
  }
  std::uint32_t accessLimit() const {
    return std::min(m_layout->header.accessLimit.load(), kAccessSlots);
  }
  std::uint32_t queueLimit() const {
    return std::min(m_layout->header.queueLimit.load(), kQueueSlots);
  }
  std::uint32_t fileLimit() const {
    return std::min(m_layout->header.fileLimit.load(), kFileSlots);
  }
  /// Slots are used from the lowest on. Makes one more touchable, before it is claimed. Throws
  /// Failure 2056, or 2102 when the table is full.
  void growQueues(std::uint32_t slot) const;
  void growFiles(std::uint32_t slot) const;

  /// The order of commits. Never given twice, also after a boot.
  std::uint64_t nextNumber() const { return m_layout->header.lastNumber.fetch_add(1) + 1; }
  void noteNumber(std::uint64_t number) const;
  std::uint32_t nextQueueId() const { return m_layout->header.lastQueueId.fetch_add(1) + 1; }
  void noteQueueId(std::uint32_t id) const;
  /// Set when files may be empty though their counts do not say so.
  std::atomic<std::uint32_t>& recountWanted() const { return m_layout->header.recountWanted; }
  /// When it was made, ms since 1970: the counts begin there.
  std::int64_t made() const { return m_layout->header.made; }
  /// Copies of what the manager's file says, for those who are connected.
  std::atomic<std::uint32_t>& syncFull() const { return m_layout->header.syncFull; }
  std::atomic<std::uint32_t>& commandServerStopped() const {
    return m_layout->header.commandServerStopped;
  }

  /// Throws Failure 2025 when all are in use. The slot is this process's until released.
  std::uint32_t claimConnection();
  void releaseConnection(std::uint32_t slot);
  /// Leaves the slot as that of a dead process, for a later recovery to find.
  void abandonConnection(std::uint32_t slot);
  /// Takes over what an earlier user of the queue left, or a new slot. Throws Failure 2102 when all
  /// are in use.
  std::uint32_t claimAccess(std::uint32_t connection, std::uint32_t queueSlot,
                            std::uint32_t queueId);
  void releaseAccess(std::uint32_t slot);

  /// Takes hold of a slot whose process died; false when it is free or its process lives. Held
  /// until releaseConnection, also against other recoverers.
  bool claimDead(std::uint32_t slot);
  /// True when the process that the slot belongs to has died.
  bool hasDied(std::uint32_t slot) const;
  /// True when another process holds any connection.
  bool othersConnected() const;

  /// False when the file has been removed, or the folder been replaced, under this process.
  bool isInPlace() const;
  /// True when any process holds a connection to the manager in a folder. Not for a folder that
  /// this process has open itself: closing the file again would release its locks. The same holds
  /// for the next two.
  static bool isInUse(const Folder& folder);
  /// True when what the folder has of shared memory is of this boot and store.
  static bool isKept(const Folder& folder, std::uint64_t storeId);
  /// Takes the shared memory away, so that it is made anew; false when the manager is in use.
  static bool discard(const Folder& folder);

  /// For a moment nobody makes log files free: somebody copies them. Ends by itself.
  void pauseReclaim() const;
  void resumeReclaim() const { m_layout->header.reclaimPausedUntil = 0; }
  bool isReclaimPaused() const;

private:
  struct Header {
    char magic[8];
    std::uint32_t version;
    std::uint32_t sealed;
    std::uint64_t storeId;
    char bootId[40];
    std::int64_t made;
    std::atomic<std::uint32_t> connectionLimit; ///< slots from here on were never used
    std::atomic<std::uint32_t> accessLimit, queueLimit, fileLimit;
    std::atomic<std::uint64_t> lastNumber;
    std::atomic<std::uint32_t> lastQueueId;
    std::atomic<std::uint32_t> recountWanted;
    std::atomic<std::uint32_t> syncFull, commandServerStopped;
    std::atomic<std::int64_t> reclaimPausedUntil; ///< ns of the clock since the boot
  };
  struct Layout {
    Header header;
    alignas(4096) ConnectionSlot connections[kConnectionSlots];
    alignas(4096) AccessSlot accesses[kAccessSlots];
    alignas(4096) QueueSlot queues[kQueueSlots];
    alignas(4096) FileSlot files[kFileSlots];
  };

  class OpeningLock;
  static bool isCurrent(const File& file, std::uint64_t storeId);
  void remake(std::uint64_t storeId);
  void map();
  void seal();
  void makeTouchable(const void* begin, std::size_t size) const;
  template <typename Slot>
  void grow(Slot* table, std::uint32_t slot, std::atomic<std::uint32_t>& limit) const;
  bool lockByte(std::uint64_t byte) const;
  void unlockByte(std::uint64_t byte) const;
  bool heldByOther(std::uint64_t byte) const;

  const Folder& m_folder;
  File m_file;
  Layout* m_layout = nullptr;
  std::mutex m_mutex; ///< guards the slots of this process
  /// Connection slots of this process: the kernel would grant it its own locks.
  std::array<std::atomic<bool>, kConnectionSlots> m_mine{};
};

/// Raises a number that only grows.
template <typename Number>
void raiseTo(std::atomic<Number>& word, Number value) {
  Number seen = word.load();
  while (seen < value && !word.compare_exchange_weak(seen, value)) {
  }
}

/// Tells everybody who waits that a message may have become available.
void announceArrival(QueueSlot& queue);
/// Sleeps until arrivals is no longer seen, until, or half a second.
void awaitArrival(QueueSlot& queue, std::uint32_t seen,
                  std::chrono::steady_clock::time_point until);

} // namespace bxm
