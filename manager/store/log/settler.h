#pragma once

#include "manager/store/log/log_writer.h"
#include "manager/store/log/runtime.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace bxm {

class LogStore;
struct QueueShare;

/// Adds a taken message to those of its file.
void addTake(std::vector<TakeGroup>& takes, Place place, Generation generation,
             TakeKind kind = TakeKind::kTaken);
/// The same, of what the file holds now.
inline void addTake(std::vector<TakeGroup>& takes, const Runtime& runtime, Place place,
                    TakeKind kind = TakeKind::kTaken) {
  addTake(takes, place, runtime.file(place.file).generation.load(), kind);
}
/// Counts what was taken out of its files. True when one of them is empty now, or mostly.
bool dropLive(const Runtime& runtime, const std::vector<TakeGroup>& takes);

/// What one connection has got for good and no log says yet: a power cut would bring it back. The
/// connection adds, one thread at a time, and never waits for who settles at the same time.
class Unsettled {
public:
  /// So many messages of a connection at the most.
  static constexpr std::size_t kMost = 1000;

  Unsettled(LogStore& store, LogWriter& writer, std::uint32_t connection)
      : m_store(store), m_writer(writer), m_connection(connection) {}

  /// To be called before add: settles when there is no room. Throws Failure as settle does.
  void makeRoom(std::size_t count) {
    if (size() + count > kMost) waitForRoom();
  }
  /// The share must live until it is settled.
  void add(QueueShare& share, const std::uint64_t* positions, std::size_t count);
  std::size_t size() const { return m_added - m_settled; }
  /// True when settling is due at once.
  bool isUrgent() const { return m_added - m_begun >= m_urgentAt; }
  /// Logs all of it and waits for the disk. Throws Failure; it then waits on.
  void settle();
  /// Gives space back that has become empty; see reclaim.h.
  void reclaimIfDue();
  /// Has the settling thread do it.
  void reclaimSoon();

private:
  using Clock = std::chrono::steady_clock;
  struct Got {
    QueueShare* share;
    std::uint64_t position; ///< packed
  };
  const Got& at(std::size_t number) const { return m_ring[number % kRing]; }
  void waitForRoom();
  void pace(Clock::time_point begin, std::size_t count);

  static constexpr std::size_t kRing = 1024;
  static_assert(kRing >= kMost);
  LogStore& m_store;
  LogWriter& m_writer;
  const std::uint32_t m_connection;
  std::mutex m_turn; ///< one at a time settles
  std::array<Got, kRing> m_ring;
  std::atomic<std::size_t> m_added{0}, m_begun{0}, m_settled{0};
  std::atomic<bool> m_reclaimDue{false};
  std::atomic<std::size_t> m_urgentAt{kMost / 2}; ///< so many wait when settling begins
  std::atomic<Clock::duration> m_waited{};        ///< for room, since the last settling began
  Clock::time_point m_lastBegin = Clock::now();
};

/// Settles what all connections of a process have got, before it has waited for 100 ms.
/// Thread-safe.
class Settler {
public:
  static constexpr std::chrono::milliseconds kLongest{100};

  Settler() = default;
  ~Settler();
  Settler(const Settler&) = delete;
  Settler& operator=(const Settler&) = delete;

  void join(Unsettled& member);
  void leave(Unsettled& member);
  /// To be called after add: keeps the bound of time.
  void added(const Unsettled& member) noexcept;

private:
  void run();
  void startThread();
  void settleAll();

  std::mutex m_pass; ///< guards m_members, which stay while one is at work
  std::set<Unsettled*> m_members;

  std::mutex m_mutex; ///< guards what follows
  std::condition_variable m_wake;
  std::thread m_thread;
  bool m_stop = false;
  std::atomic<bool> m_dirty{false}; ///< these two are read without the lock, too
  std::atomic<bool> m_hurry{false};
  bool m_threadless = false;
};

} // namespace bxm
