#include "manager/store/lmdb/lmdb_queue.h"

#include "manager/store/failure.h"
#include "manager/store/kill_point.h"
#include "manager/store/lmdb/lmdb_session.h"

#include <algorithm>
#include <array>
#include <thread>

namespace bxm {

namespace {
constexpr int kDepthTries = 10'000;
constexpr int kImpatientTries = 16; ///< then others are let run
} // namespace

LmdbQueue::LmdbQueue(LmdbSession& session, const QueueDefinition& definition)
    : m_session(session), m_definition(definition),
      m_share(session.store().share(definition.id, definition.slot)),
      m_accessSlot(session.store().runtime().claimAccess(session.slot(), definition)),
      m_access(session.store().runtime().access(m_accessSlot)), m_consumption(m_share, m_access) {
  session.store().settler().join(m_consumption);
}

LmdbQueue::~LmdbQueue() {
  releaseTaken();
  m_session.store().settler().leave(m_consumption);
  // What could not be settled keeps its owner, for recovery to find.
  if (m_consumption.size() == 0) m_session.store().runtime().releaseAccess(m_accessSlot);
}

// ---- Depth --------------------------------------------------------------------------------------

std::pair<std::uint64_t, std::uint64_t> LmdbQueue::durableDepth() {
  const std::uint64_t last = m_session.store().durable().lastTransaction();
  const std::lock_guard guard(m_share->depthMutex);
  if (m_share->depthTransaction != last) {
    const Reader::Snapshot snapshot(m_session.reader());
    m_share->durableDepth =
        readCounts(snapshot.txn(), m_session.store().durable(), m_share->id).depth;
    m_share->depthTransaction = ::mdb_txn_id(snapshot.txn());
  }
  return {m_share->durableDepth, m_share->depthTransaction};
}

namespace {

/// What one access slot adds to and takes from the durable depth as of a transaction. False when
/// it changed while it was read.
bool readAccess(const AccessSlot& access, std::uint64_t transaction, std::int64_t& difference) {
  const std::uint32_t before = access.settling.load();
  auto uncommitted = static_cast<std::int64_t>(access.uncommitted.load());
  auto consumed = static_cast<std::int64_t>(access.consumed.load());
  if (before % 4 == kMoving && access.transaction.load() <= transaction) {
    uncommitted -= static_cast<std::int64_t>(access.movedUncommitted.load());
    consumed -= static_cast<std::int64_t>(access.movedConsumed.load());
  }
  difference += uncommitted - consumed;
  return before % 4 <= kMoving && access.settling.load() == before;
}

} // namespace

std::uint64_t LmdbQueue::depth() {
  lookAfterOthers();
  return depthWhileLocked();
}

std::uint64_t LmdbQueue::depthWhileLocked() {
  const Runtime& runtime = m_session.store().runtime();
  std::int64_t depth = 0;
  for (int tries = 0; tries < kDepthTries; ++tries) {
    const auto [counted, transaction] = durableDepth();
    depth = static_cast<std::int64_t>(counted);
    bool steady = true;
    const std::uint32_t limit = runtime.accessLimit();
    for (std::uint32_t slot = 0; slot < limit && steady; ++slot)
      if (runtime.access(slot).queueId.load() == m_share->id)
        steady = readAccess(runtime.access(slot), transaction, depth);
    if (steady && isNewest(transaction)) break;
    if (tries >= kImpatientTries) std::this_thread::yield();
  }
  return depth > 0 ? static_cast<std::uint64_t>(depth) : 0;
}

/// True when a snapshot begun now shows this transaction. A later one may be on its way to the
/// disk.
bool LmdbQueue::isNewest(std::uint64_t transaction) {
  if (m_session.store().durable().lastTransaction() == transaction) return true;
  const Reader::Snapshot snapshot(m_session.reader());
  return ::mdb_txn_id(snapshot.txn()) == transaction;
}

bool LmdbQueue::reserve() {
  // Counted before it is checked: of two that meet at the limit, none passes it.
  m_access.uncommitted.fetch_add(1);
  BXM_KILL_POINT("put-reserved");
  const auto fits = [this] {
    return depthWhileLocked() <= static_cast<std::uint64_t>(m_definition.maxDepth);
  };
  try {
    if (fits() || (recoverOthers() && fits())) return true;
  } catch (...) {
    unreserve();
    throw;
  }
  unreserve();
  return false;
}

// ---- What the unit of work has taken ------------------------------------------------------------

void LmdbQueue::visitTakenInMap(
    const std::function<void(const Position&, std::atomic<std::uint32_t>&)>& visit) {
  m_share->takes.forEachOf(m_accessSlot, m_access.lowest.load(), m_access.highest.load(),
                           [&visit](std::uint64_t sequence, std::atomic<std::uint32_t>& entry) {
                             const std::uint32_t value = entry.load();
                             if (TakeEntry::stateOf(value) == TakeEntry::kTaken)
                               visit({TakeEntry::priorityOf(value), sequence}, entry);
                           });
}

void LmdbQueue::forgetTaken() {
  m_taken.clear();
  m_takenCount = 0;
}

void LmdbQueue::consumeTaken() {
  visitTaken([&](const Position& position, std::atomic<std::uint32_t>& entry) {
    entry.store(TakeEntry::make(TakeEntry::kConsumed, m_accessSlot, position.priority));
    BXM_KILL_POINT("consume-entry");
  });
  m_access.consumed.fetch_add(m_taken.size());
  m_consumption.add(m_taken.data(), m_taken.size());
  forgetTaken();
}

void LmdbQueue::markTakenDeleted() {
  visitTaken([](const Position&, std::atomic<std::uint32_t>& entry) {
    entry.store(TakeEntry::deleted());
    BXM_KILL_POINT("commit-entry");
  });
  forgetTaken();
}

void LmdbQueue::releaseTaken() {
  if (!hasTaken()) return;
  std::array<std::uint64_t, BXPRI_MAXIMUM + 1> lowest;
  lowest.fill(UINT64_MAX);
  visitTaken([&](const Position& position, std::atomic<std::uint32_t>& entry) {
    entry.store(TakeEntry::kFree);
    auto& low = lowest[static_cast<std::size_t>(position.priority)];
    low = std::min(low, position.sequence);
    BXM_KILL_POINT("release-entry");
  });
  for (std::size_t priority = 0; priority < lowest.size(); ++priority)
    if (lowest[priority] != UINT64_MAX)
      lowerFloor(m_share->slot.floors[priority], lowest[priority]);
  BXM_KILL_POINT("release-lowered");
  forgetTaken();
  announceArrival(m_share->slot);
}

} // namespace bxm
