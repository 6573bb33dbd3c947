#pragma once

#include "manager/store/lmdb/stop_signals.h"
#include "manager/store/lmdb/take_map.h"
#include "manager/store/store.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

/// The shared memory of a manager: who is connected, who has taken what, who waits. A file that all
/// processes map. It is made anew after a boot; it must be right after the death of any process at
/// any instruction, so every change of state is one atomic store, and what is counted can be
/// counted again (see docs/storage-format.md).
namespace bxm {

constexpr std::uint32_t kConnectionSlots = 4096;
constexpr std::uint32_t kAccessSlots = 8192;
constexpr std::uint32_t kQueueSlots = 16384;

/// One connection. It is alive while its process holds the lock on the slot's byte of the file,
/// which the kernel releases at the process's death.
struct alignas(64) ConnectionSlot {
  std::atomic<std::uint32_t> used;
  std::atomic<std::uint32_t> process; ///< for people who look
  /// 1 from the moment a unit of work of gets counts until all its entries say so: who finds the
  /// process dead finishes the commit instead of backing out.
  std::atomic<std::uint32_t> committing;
  /// The queue that is being deleted, 0 for none, and its slot: who finds the process dead and the
  /// definition gone frees the slot.
  std::atomic<std::uint32_t> deletingQueue, deletingSlot;
};

/// The lowest two bits of AccessSlot::settling; the rest counts.
enum SettlingPhase : std::uint32_t {
  kQuiet = 0,
  kMoving = 1,   ///< a durable transaction moves messages out of the slot's counts
  kChanging = 2, ///< it has done so, and the counts are being brought up to it
};

/// One queue in use by one connection; the owner that take map entries name. Only its connection
/// writes it.
struct alignas(64) AccessSlot {
  std::atomic<std::uint32_t> connection; ///< slot + 1; 0 free
  std::atomic<std::uint32_t> queueSlot;
  std::atomic<std::uint32_t> queueId;
  std::atomic<std::uint32_t> settling;        ///< see SettlingPhase
  std::atomic<std::uint64_t> uncommitted;     ///< puts
  std::atomic<std::uint64_t> consumed;        ///< gets that count and are not deleted yet
  std::atomic<std::uint64_t> lowest, highest; ///< sequences that entries of this owner lie between
  /// While it moves: the transaction, and what it moves. A snapshot that holds the transaction
  /// counts these messages already.
  std::atomic<std::uint64_t> transaction, movedUncommitted, movedConsumed;
};

/// One queue.
struct alignas(64) QueueSlot {
  std::atomic<std::uint32_t> queueId;  ///< 0 free
  std::atomic<std::uint32_t> arrivals; ///< futex: changes when a message may have become available
  std::atomic<std::uint32_t> waiters;
  std::atomic<std::uint32_t> priorities; ///< bit p: priority p may hold messages
  std::atomic<std::uint64_t> base;       ///< sequence that the take map's file begins with
  /// For each priority, generation << 48 | sequence: every message below is unavailable. Lowering
  /// it changes the generation, so that a scan which saw the older state cannot raise it again.
  std::atomic<std::uint64_t> floors[10];
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

class Runtime {
public:
  /// Opens the file, or makes it when it is of another boot, another store or a newer state of it:
  /// rebuild is then called, under a lock that keeps everybody else out, to set up the queue slots.
  /// lastTransaction asks the store for its last one; others may commit meanwhile.
  template <typename Rebuild>
  Runtime(const std::string& folder, std::uint64_t storeId,
          const std::function<std::uint64_t()>& lastTransaction, Rebuild rebuild)
      : Runtime(folder) {
    const OpeningLock lock(*this);
    if (isCurrent(storeId, lastTransaction)) {
      map();
    } else {
      remake(storeId);
      map();
      rebuild(*this);
      seal();
    }
  }
  ~Runtime();
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;

  ConnectionSlot& connection(std::uint32_t slot) const { return m_layout->connections[slot]; }
  AccessSlot& access(std::uint32_t slot) const { return m_layout->accesses[slot]; }
  QueueSlot& queue(std::uint32_t slot) const { return m_layout->queues[slot]; }
  std::uint32_t accessLimit() const { return m_layout->header.accessLimit.load(); }
  std::uint32_t connectionLimit() const { return m_layout->header.connectionLimit.load(); }

  /// Throws Failure 2025 when all are in use. The slot is this process's until released.
  std::uint32_t claimConnection();
  void releaseConnection(std::uint32_t slot);
  /// Leaves the slot as that of a dead process, for a later recovery to find.
  void abandonConnection(std::uint32_t slot);
  /// Throws Failure 2102 when all are in use.
  std::uint32_t claimAccess(std::uint32_t connection, const QueueDefinition& definition);
  void releaseAccess(std::uint32_t slot);

  /// Keeps the newest transaction of the durable store that was seen. One that is older than that
  /// later on is a copy put back in its place: what is known about its messages is then void.
  void noteTransaction(std::uint64_t transaction) const;

  /// Takes hold of a slot whose process died; false when it is free or its process lives. Held
  /// until releaseConnection, also against other recoverers.
  bool claimDead(std::uint32_t slot);
  /// True when the process that the slot belongs to has died.
  bool hasDied(std::uint32_t slot) const;
  /// True when another process holds any connection.
  bool othersConnected() const;

  /// Sets a queue's slot up, for a queue that is new or known from the durable store.
  void prepareQueue(const QueueDefinition& definition, std::uint64_t base,
                    std::uint32_t priorities) const;

  /// False when the folder has been renamed or replaced under this process.
  bool isInPlace() const;
  /// True when any process holds a connection to the manager in a folder. Not for a folder that
  /// this process has open itself: closing the file again would release its locks.
  static bool isInUse(const std::string& folder);

private:
  struct Header {
    char magic[8];
    std::uint32_t version;
    std::uint32_t sealed;
    std::uint64_t storeId;
    char bootId[40];
    std::atomic<std::uint32_t> connectionLimit; ///< slots from here on were never used
    std::atomic<std::uint32_t> accessLimit;
    std::atomic<std::uint64_t> newestTransaction;
  };
  struct Layout {
    Header header;
    alignas(4096) ConnectionSlot connections[kConnectionSlots];
    AccessSlot accesses[kAccessSlots];
    QueueSlot queues[kQueueSlots];
  };

  class OpeningLock {
  public:
    explicit OpeningLock(Runtime& runtime);
    ~OpeningLock();

  private:
    StopSignalsWait m_stopsWait;
    Runtime& m_runtime;
  };

  explicit Runtime(const std::string& folder);
  bool isCurrent(std::uint64_t storeId,
                 const std::function<std::uint64_t()>& lastTransaction) const;
  void remake(std::uint64_t storeId);
  void map();
  void seal();
  bool lockByte(std::uint64_t byte, bool wait) const;
  void unlockByte(std::uint64_t byte) const;
  bool heldByOther(std::uint64_t byte) const;

  std::string m_folder;
  int m_file = -1;
  Layout* m_layout = nullptr;
  std::mutex m_mutex; ///< guards the slots of this process
  /// Connection slots of this process: the kernel would grant it its own locks.
  std::array<std::atomic<bool>, kConnectionSlots> m_mine{};
};

/// Raises or lowers a floor as described above.
void raiseFloor(std::atomic<std::uint64_t>& floor, std::uint64_t seen, std::uint64_t sequence);
void lowerFloor(std::atomic<std::uint64_t>& floor, std::uint64_t sequence);
constexpr std::uint64_t floorSequence(std::uint64_t word) {
  return word & ((std::uint64_t{1} << 48) - 1);
}

/// Tells everybody who waits that a message may have become available.
void announceArrival(QueueSlot& queue);
/// Sleeps until arrivals is no longer seen, until, or half a second.
void awaitArrival(QueueSlot& queue, std::uint32_t seen,
                  std::chrono::steady_clock::time_point until);

} // namespace bxm
