#include "manager/store/lmdb/settler.h"

#include "manager/store/failure.h"
#include "manager/store/kill_point.h"
#include "manager/store/lmdb/lmdb_store.h"

#include <algorithm>
#include <csignal>
#include <deque>

namespace bxm {

void Consumption::reserve(std::size_t count) {
  const std::lock_guard guard(m_mutex);
  const std::size_t needed = m_waiting.size() + count;
  if (needed > m_waiting.capacity()) m_waiting.reserve(std::max(needed, 2 * m_waiting.capacity()));
}

void Consumption::add(const Position* positions, std::size_t count) {
  const std::lock_guard guard(m_mutex);
  m_waiting.insert(m_waiting.end(), positions, positions + count);
  m_size += count;
}

// ---- Settling -----------------------------------------------------------------------------------

Settling::Settling(AccessSlot& access, std::mutex& turn, std::uint64_t transaction,
                   std::uint64_t uncommitted, std::uint64_t consumed)
    : m_access(access), m_turn(turn), m_uncommitted(uncommitted), m_consumed(consumed) {
  m_access.transaction = transaction;
  m_access.movedUncommitted = uncommitted;
  m_access.movedConsumed = consumed;
  m_access.settling.fetch_add(1); // moving
}

Settling::~Settling() {
  m_access.settling.fetch_add(1); // changing
  if (m_done) {
    m_access.uncommitted.fetch_sub(m_uncommitted);
    m_access.consumed.fetch_sub(m_consumed);
  }
  m_access.settling.fetch_add(2); // quiet
}

void deleteMessages(MDB_txn* txn, const Durable& durable, std::uint32_t queue,
                    const std::vector<Position>& positions) {
  QueueCounts counts;
  if (!readCountsIfThere(txn, durable, queue, counts)) return; // the queue was deleted
  for (const Position& position : positions) {
    MessageKey key(queue, position);
    MDB_val keyValue = key.value();
    const int result = ::mdb_del(txn, durable.messages, &keyValue, nullptr);
    if (result == MDB_NOTFOUND) continue;
    if (result != MDB_SUCCESS) failWithLmdb(result, "deleting messages");
    --counts.depth;
  }
  writeCounts(txn, durable, queue, counts);
}

namespace {

constexpr std::uint64_t kTrimAfter = 1'000'000;
/// About the time in which a fast reader takes half of what may wait.
constexpr std::chrono::microseconds kSlowPass{1500};

/// The lowest sequence that a queue holds, as a transaction sees it.
std::uint64_t lowestSequence(MDB_txn* txn, const Durable& durable, std::uint32_t queue) {
  MDB_cursor* cursor = nullptr;
  if (const int result = ::mdb_cursor_open(txn, durable.messages, &cursor))
    failWithLmdb(result, "reading messages");
  const std::unique_ptr<MDB_cursor, void (*)(MDB_cursor*)> closes(cursor, ::mdb_cursor_close);
  std::uint64_t lowest = readCounts(txn, durable, queue).nextSequence;
  for (int priority = 0; priority <= BXPRI_MAXIMUM; ++priority) {
    MessageKey key(queue, {priority, 0});
    MDB_val keyValue = key.value(), value{};
    if (::mdb_cursor_get(cursor, &keyValue, &value, MDB_SET_RANGE) != MDB_SUCCESS) continue;
    const Position first = MessageKey::positionOf(keyValue);
    if (MessageKey::queueOf(keyValue) == queue && first.priority == priority)
      lowest = std::min(lowest, first.sequence);
  }
  return lowest;
}

/// From time to time, tells below which sequence a queue's take map is not needed any more; else 0.
std::uint64_t trimBelow(MDB_txn* txn, const Durable& durable, QueueShare& share,
                        std::size_t settled) {
  share.settledSinceTrim += settled;
  if (share.settledSinceTrim < kTrimAfter) return 0;
  share.settledSinceTrim = 0;
  return lowestSequence(txn, durable, share.id);
}

} // namespace

// ---- Settler ------------------------------------------------------------------------------------

Settler::~Settler() {
  {
    const std::lock_guard guard(m_mutex);
    m_stop = true;
  }
  m_wake.notify_all();
  if (m_thread.joinable()) m_thread.join();
}

void Settler::join(Consumption& consumption) {
  const std::lock_guard guard(m_pass);
  m_members.insert(&consumption);
}

void Settler::leave(Consumption& consumption) noexcept {
  try {
    if (consumption.size() > 0) settleAll();
  } catch (const std::exception&) {
    // The entries stay marked as consumed; whoever connects next finds their owner gone.
  }
  const std::lock_guard guard(m_pass);
  m_members.erase(&consumption);
}

void Settler::added(const Consumption& consumption) noexcept {
  const bool hurry = consumption.size() >= passBegins();
  if (m_dirty && (!hurry || m_hurry)) return; // the thread knows
  {
    const std::lock_guard guard(m_mutex);
    m_dirty = true;
    if (hurry) m_hurry = true;
    if (!m_thread.joinable() && !m_threadless) startThread();
  }
  m_wake.notify_one();
}

void Settler::settleAll() {
  const std::lock_guard guard(m_pass);
  std::vector<Consumption*> work;
  for (Consumption* member : m_members) {
    const std::lock_guard waiting(member->m_mutex);
    member->m_inWork.insert(member->m_inWork.end(), member->m_waiting.begin(),
                            member->m_waiting.end());
    member->m_waiting.clear();
    if (!member->m_inWork.empty()) work.push_back(member);
  }
  if (work.empty()) return;
  const auto begin = std::chrono::steady_clock::now();
  BXM_KILL_POINT("settle-begin");
  WriteTransaction txn(m_durable);
  std::vector<std::uint64_t> trims;
  for (Consumption* member : work) {
    deleteMessages(txn.get(), m_durable, member->m_share->id, member->m_inWork);
    trims.push_back(trimBelow(txn.get(), m_durable, *member->m_share, member->m_inWork.size()));
  }
  std::deque<Settling> settlings;
  for (Consumption* member : work)
    settlings.emplace_back(*member, ::mdb_txn_id(txn.get()), 0, member->m_inWork.size());
  BXM_KILL_POINT("settle-before-commit");
  txn.commit();
  BXM_KILL_POINT("settle-after-commit");
  m_runtime.noteTransaction(m_durable.lastTransaction());
  m_slow = std::chrono::steady_clock::now() - begin > kSlowPass;
  for (Settling& settling : settlings) settling.done();
  for (std::size_t i = 0; i < work.size(); ++i) {
    Consumption* member = work[i];
    for (const Position& position : member->m_inWork) {
      member->m_share->takes.at(position.sequence).store(TakeEntry::deleted());
      BXM_KILL_POINT("settle-entry");
    }
    member->m_size -= member->m_inWork.size();
    member->m_inWork.clear();
    if (trims[i] > 0) member->m_share->takes.forget(trims[i]);
  }
}

void Settler::startThread() {
  sigset_t all, before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before); // signals are the program's, not this thread's
  try {
    m_thread = std::thread([this] { run(); });
  } catch (const std::exception&) {
    m_threadless = true; // the bound of messages still holds, and the disconnect settles the rest
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Settler::run() {
  std::unique_lock lock(m_mutex);
  while (!m_stop) {
    m_wake.wait(lock, [this] { return m_stop || m_dirty; });
    m_wake.wait_for(lock, kLongest, [this] { return m_stop || m_hurry; });
    if (m_stop) return;
    m_dirty = false;
    m_hurry = false;
    lock.unlock();
    bool failed = false;
    try {
      const StopSignalsPostponed postponed;
      settleAll();
    } catch (const std::exception&) {
      failed = true; // the next reader that passes the bound is told
    }
    lock.lock();
    if (failed) m_dirty = true;
  }
}

} // namespace bxm
