#pragma once

#include "manager/store/lmdb/durable.h"
#include "manager/store/lmdb/runtime.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace bxm {

struct QueueShare;

/// Messages of one queue that one connection has got for good and that the durable store still
/// holds. add and settle may run in two threads.
class Consumption {
public:
  Consumption(std::shared_ptr<QueueShare> share, AccessSlot& access)
      : m_share(std::move(share)), m_access(access) {}

  /// Room for so many more: add needs no memory then.
  void reserve(std::size_t count);
  void add(const Position& position) { add(&position, 1); }
  void add(const Position* positions, std::size_t count);
  /// How many are not deleted yet, those that are being deleted included.
  std::size_t size() const { return m_size.load(std::memory_order_relaxed); }

private:
  friend class Settler;
  friend class Settling;
  std::shared_ptr<QueueShare> m_share;
  AccessSlot& m_access;
  std::mutex m_settlingTurn; ///< held by who settles the access slot's counts
  std::mutex m_mutex;        ///< guards m_waiting
  std::vector<Position> m_waiting;
  std::vector<Position> m_inWork; ///< guarded by the settler's pass
  std::atomic<std::size_t> m_size{0};
};

/// Deletes consumed messages from the durable store in batches: a flush of the disk for each
/// message read would make reading as slow as writing. A power cut brings back what was not
/// deleted, so there are two bounds: kMostUnsettled messages for each connection and queue, and
/// kLongest in time, which a thread of its own watches over.
class Settler {
public:
  static constexpr std::size_t kMostUnsettled = 1000;
  static constexpr std::chrono::milliseconds kLongest{100};

  Settler(const Durable& durable, const Runtime& runtime)
      : m_durable(durable), m_runtime(runtime) {}
  ~Settler();
  Settler(const Settler&) = delete;
  Settler& operator=(const Settler&) = delete;

  void join(Consumption& consumption);
  /// Settles it and lets go of it. Never throws: what cannot be deleted now is left to recovery.
  void leave(Consumption& consumption) noexcept;

  /// To be called before count messages are consumed: keeps the bound of messages, and reserves.
  /// Throws Failure when the store cannot delete.
  void makeRoom(Consumption& consumption, std::size_t count) {
    if (consumption.size() + count > kMostUnsettled) settleAll();
    consumption.reserve(count);
  }
  /// To be called after add: keeps the bound of time.
  void added(const Consumption& consumption) noexcept;
  /// Deletes everything that waits, of all connections. Throws Failure; it then waits on.
  void settleAll();

private:
  void run();
  void startThread();
  /// From how many waiting messages on the thread begins a pass.
  std::size_t passBegins() const { return m_slow.load() ? SIZE_MAX : kMostUnsettled / 2; }

  const Durable& m_durable;
  const Runtime& m_runtime;
  std::mutex m_pass; ///< one pass at a time; guards m_members
  std::set<Consumption*> m_members;

  std::mutex m_mutex; ///< guards what follows
  std::condition_variable m_wake;
  std::thread m_thread;
  bool m_stop = false;
  std::atomic<bool> m_dirty{false}; ///< these two are read without the lock, too
  std::atomic<bool> m_hurry{false};
  bool m_threadless = false;
  /// The last pass took so long that readers reach the bound meanwhile: then fewer, larger passes,
  /// made by whoever reaches it, let them go faster than the thread's halves.
  std::atomic<bool> m_slow{false};
};

/// A durable transaction moves messages out of a connection's counts of a queue: brackets its
/// commit, so that depths stay exact. The settling thread and the connection's own take turns.
class Settling {
public:
  Settling(AccessSlot& access, std::mutex& turn, std::uint64_t transaction,
           std::uint64_t uncommitted, std::uint64_t consumed);
  /// Of several at once, the one with the lower address first.
  Settling(Consumption& consumption, std::uint64_t transaction, std::uint64_t uncommitted,
           std::uint64_t consumed)
      : Settling(consumption.m_access, consumption.m_settlingTurn, transaction, uncommitted,
                 consumed) {}
  ~Settling();
  Settling(const Settling&) = delete;
  Settling& operator=(const Settling&) = delete;
  /// The transaction has been committed.
  void done() { m_done = true; }

private:
  AccessSlot& m_access;
  std::unique_lock<std::mutex> m_turn;
  std::uint64_t m_uncommitted, m_consumed;
  bool m_done = false;
};

/// Deletes messages of one queue within a transaction, and from its count. Those that are not there
/// are passed over.
void deleteMessages(MDB_txn* txn, const Durable& durable, std::uint32_t queue,
                    const std::vector<Position>& positions);

} // namespace bxm
