#include "manager/store/clock.h"
#include "manager/store/failure.h"
#include "manager/store/kill_point.h"
#include "manager/store/lmdb/lmdb_queue.h"
#include "manager/store/lmdb/lmdb_session.h"
#include "manager/store/lmdb/queue_scan.h"
#include "manager/store/record.h"

#include <algorithm>
#include <ctime>

namespace bxm {

namespace {

constexpr std::size_t kMostListed = 65536;

/// Looks a message up; false when it is not there.
bool find(const Reader::Snapshot& snapshot, std::uint32_t queue, StoredMessage& message) {
  MessageKey key(queue, message.position);
  MDB_val keyValue = key.value(), value{};
  const int result = ::mdb_cursor_get(snapshot.messages(), &keyValue, &value, MDB_SET);
  if (result == MDB_NOTFOUND) return false;
  if (result != MDB_SUCCESS) failWithLmdb(result, "reading a message");
  message.record = {static_cast<const char*>(value.mv_data), value.mv_size};
  return true;
}

bool hasExpired(const StoredMessage& message) {
  const std::int64_t expires = recordExpiry(message.record);
  return expires != 0 && expires <= clockNow();
}

} // namespace

void LmdbQueue::noteTouched(std::uint64_t sequence) {
  const bool fresh = m_takenCount == 0 && m_consumption.size() == 0;
  m_access.lowest = fresh ? sequence : std::min(m_access.lowest.load(), sequence);
  m_access.highest = fresh ? sequence : std::max(m_access.highest.load(), sequence);
}

bool LmdbQueue::claimEntry(const Position& position) {
  auto& entry = m_share->takes.at(position.sequence);
  noteTouched(position.sequence);
  std::uint32_t expected = TakeEntry::kFree;
  return entry.compare_exchange_strong(
      expected, TakeEntry::make(TakeEntry::kTaken, m_accessSlot, position.priority));
}

namespace {

/// Gives a claimed message back unless it is kept: an entry that nobody answers for would hide the
/// message until the next boot.
class ClaimUndo {
public:
  ClaimUndo(QueueShare& share, const Position& position)
      : m_share(share), m_position(position), m_entry(share.takes.at(position.sequence)) {}
  ~ClaimUndo() {
    if (m_kept) return;
    m_entry.store(TakeEntry::kFree);
    lowerFloor(m_share.slot.floors[m_position.priority], m_position.sequence);
    announceArrival(m_share.slot);
  }
  ClaimUndo(const ClaimUndo&) = delete;
  ClaimUndo& operator=(const ClaimUndo&) = delete;
  void keep() { m_kept = true; }

private:
  QueueShare& m_share;
  Position m_position;
  std::atomic<std::uint32_t>& m_entry;
  bool m_kept = false;
};

} // namespace

/// Claims a message that a snapshot shows. Messages are deleted only by whoever has claimed them,
/// so one that a snapshot shows which was begun after the claim is there and stays there.
LmdbQueue::Claim LmdbQueue::claim(Reader::Snapshot& snapshot, StoredMessage& message, bool& moved) {
  if (!claimEntry(message.position)) return Claim::kLost;
  ClaimUndo undo(*m_share, message.position);
  BXM_KILL_POINT("take-claimed");
  moved = snapshot.refresh();
  const bool there = !moved || find(snapshot, m_share->id, message);
  undo.keep();
  if (there) return Claim::kMine;
  m_share->takes.at(message.position.sequence).store(TakeEntry::deleted());
  return Claim::kGone;
}

void LmdbQueue::accept(StoredMessage& message, Receiver& receiver, bool syncpoint) {
  ClaimUndo undo(*m_share, message.position);
  std::vector<TakeJournal::Entry> entries;
  if (!syncpoint) entries.push_back({m_share->id, message.position});
  receiver.deliver(message);
  if (m_taken.size() < kMostListed) m_taken.push_back(message.position);
  undo.keep();
  ++m_takenCount;
  if (syncpoint) return;
  // Without a unit of work the take and its commit are this one store.
  m_share->takes.at(message.position.sequence)
      .store(TakeEntry::make(TakeEntry::kConsumed, m_accessSlot, message.position.priority));
  BXM_KILL_POINT("take-consumed");
  --m_takenCount;
  if (m_taken.size() > m_takenCount) m_taken.pop_back();
  m_access.consumed.fetch_add(1);
  m_consumption.add(message.position);
  m_session.store().settler().added(m_consumption);
  if (!m_session.journal(entries))
    throw Failure(BXRC_OUTCOME_UNKNOWN, "the disk does not take the get of a message");
}

void LmdbQueue::makeRoomForOne() {
  m_session.store().settler().makeRoom(m_consumption, 1);
  m_session.prepareJournal();
}

/// Removes an expired message. False when that has to wait: an entry that nobody holds must stay
/// in sight, since a clock can be set back.
bool LmdbQueue::dropExpired(const Position& position) {
  try {
    if (m_consumption.size() >= kMostListed) m_session.store().settler().settleAll();
    m_consumption.reserve(1);
  } catch (const std::exception&) {
    return false;
  }
  auto& entry = m_share->takes.at(position.sequence);
  noteTouched(position.sequence);
  std::uint32_t expected = TakeEntry::kFree;
  const std::uint32_t consumed =
      TakeEntry::make(TakeEntry::kConsumed, m_accessSlot, position.priority);
  if (!entry.compare_exchange_strong(expected, consumed)) return true;
  m_access.consumed.fetch_add(1);
  m_consumption.add(position);
  m_session.store().settler().added(m_consumption);
  return true;
}

/// Gives back what dead processes had taken of this queue: their messages stand before those that
/// a scan finds. The kernel is asked about others at most once in a tick of the coarse clock, some
/// milliseconds, since a reader comes by here for each message.
void LmdbQueue::lookAfterOthers() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  const std::int64_t tick = std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
  if (m_share->lookedAfter.exchange(tick, std::memory_order_relaxed) != tick) recoverOthers();
}

/// True when something was given back.
bool LmdbQueue::recoverOthers() {
  const Runtime& runtime = m_session.store().runtime();
  const std::uint32_t limit = runtime.accessLimit();
  for (std::uint32_t slot = 0; slot < limit; ++slot) {
    const AccessSlot& access = runtime.access(slot);
    if (slot == m_accessSlot || access.queueId.load() != m_share->id) continue;
    const std::uint32_t owner = access.connection.load();
    if (owner > 0 && runtime.hasDied(owner - 1)) return m_session.store().recoverDead();
  }
  // Who was deleting the queue need not have had it open.
  const std::uint32_t connections = runtime.connectionLimit();
  for (std::uint32_t slot = 0; slot < connections; ++slot)
    if (runtime.connection(slot).deletingQueue.load() == m_share->id && runtime.hasDied(slot))
      return m_session.store().recoverDead();
  return false;
}

/// Passes over a message that nobody can have. True when it was one.
bool LmdbQueue::passOver(QueueScan& scan) {
  StoredMessage& message = scan.message();
  if (m_share->takes.load(message.position.sequence) != TakeEntry::kFree) {
    scan.markUnavailable();
    return true;
  }
  if (!hasExpired(message)) return false;
  if (dropExpired(message.position))
    scan.markUnavailable();
  else
    scan.markAvailable();
  return true;
}

// ---- Taking -------------------------------------------------------------------------------------

/// Copies what comes next for the calls that follow. The message of this call is delivered by now:
/// what fails here is no failure of it, and is met again when its turn comes.
void LmdbQueue::fill(ReadAhead& ahead, std::size_t wanted, QueueScan& scan) noexcept {
  scan.markAvailable();
  try {
    while (wanted > 0 && scan.next()) {
      const StoredMessage& message = scan.message();
      if (m_share->takes.load(message.position.sequence) != TakeEntry::kFree) continue;
      if (hasExpired(message) || !ahead.add(message, wanted)) return;
    }
  } catch (const std::exception&) {
    ahead.clear();
  }
}

/// Takes from what was read ahead; nothing when that does not serve.
std::optional<Found> LmdbQueue::takeAhead(Receiver& receiver, bool syncpoint) {
  const Durable& durable = m_session.store().durable();
  while (!m_takeAhead.empty() && m_takeAhead.isTrue(durable.lastTransaction(), arrivals())) {
    StoredMessage message = m_takeAhead.next();
    if (m_share->takes.load(message.position.sequence) != TakeEntry::kFree) continue;
    const auto verdict = hasExpired(message) ? Receiver::Verdict::kSkip : receiver.judge(message);
    if (verdict != Receiver::Verdict::kAccept) {
      m_takeAhead.clear(); // who comes next may want what this one passed over
      return verdict == Receiver::Verdict::kRefuse ? std::optional(Found::kRefused) : std::nullopt;
    }
    if (!claimEntry(message.position)) continue;
    BXM_KILL_POINT("take-claimed");
    if (durable.lastTransaction() != m_takeAhead.transaction()) {
      ClaimUndo undo(*m_share, message.position);
      const Reader::Snapshot claimed(m_session.reader());
      StoredMessage stored = message;
      const bool there = find(claimed, m_share->id, stored);
      undo.keep();
      if (!there) {
        m_share->takes.at(message.position.sequence).store(TakeEntry::deleted());
        continue;
      }
    }
    accept(message, receiver, syncpoint);
    return Found::kDelivered;
  }
  m_takeAhead.clear();
  return std::nullopt;
}

Found LmdbQueue::scanAndTake(Receiver& receiver, bool syncpoint) {
  const std::uint32_t seen = arrivals();
  Reader::Snapshot snapshot(m_session.reader());
  QueueScan scan(*m_share, snapshot, std::nullopt);
  while (scan.next()) {
    if (passOver(scan)) continue;
    StoredMessage& message = scan.message();
    const auto verdict = receiver.judge(message);
    if (verdict == Receiver::Verdict::kRefuse) return Found::kRefused;
    if (verdict == Receiver::Verdict::kSkip) {
      scan.markAvailable();
      continue;
    }
    bool moved = false;
    const Claim result = claim(snapshot, message, moved);
    if (moved) scan.reseek();
    scan.markUnavailable();
    if (result != Claim::kMine) continue;
    accept(message, receiver, syncpoint);
    m_takeAhead.begin(::mdb_txn_id(snapshot.txn()), seen);
    fill(m_takeAhead, m_takeAhead.grow(), scan);
    return Found::kDelivered;
  }
  return Found::kNothing;
}

Found LmdbQueue::take(Receiver& receiver, bool syncpoint) {
  if (!exists()) return Found::kNothing;
  if (!syncpoint) makeRoomForOne();
  lookAfterOthers();
  if (const auto found = takeAhead(receiver, syncpoint)) return *found;
  const Found found = scanAndTake(receiver, syncpoint);
  if (found != Found::kNothing || !recoverOthers()) return found;
  return scanAndTake(receiver, syncpoint);
}

Found LmdbQueue::takeAt(const Position& position, Receiver& receiver, bool syncpoint) {
  lookAfterOthers();
  if (!exists()) return Found::kNothing;
  if (!syncpoint) makeRoomForOne();
  Reader::Snapshot snapshot(m_session.reader());
  StoredMessage message{position, {}, 0};
  if (!find(snapshot, m_share->id, message) ||
      m_share->takes.load(position.sequence) != TakeEntry::kFree || hasExpired(message))
    return Found::kNothing;
  const auto verdict = receiver.judge(message);
  if (verdict == Receiver::Verdict::kSkip) return Found::kNothing;
  if (verdict == Receiver::Verdict::kRefuse) return Found::kRefused;
  bool moved = false;
  if (claim(snapshot, message, moved) != Claim::kMine) return Found::kNothing;
  accept(message, receiver, syncpoint);
  return Found::kDelivered;
}

// ---- Browsing -----------------------------------------------------------------------------------

std::optional<Found> LmdbQueue::browseAhead(const Position& after, Receiver& receiver) {
  if (!m_browseAhead.follows(after)) return std::nullopt;
  while (!m_browseAhead.empty() &&
         m_browseAhead.isTrue(m_session.store().durable().lastTransaction(), arrivals())) {
    const StoredMessage message = m_browseAhead.next();
    if (m_share->takes.load(message.position.sequence) != TakeEntry::kFree) continue;
    if (hasExpired(message)) return std::nullopt;
    const auto verdict = receiver.judge(message);
    if (verdict == Receiver::Verdict::kSkip) continue;
    if (verdict == Receiver::Verdict::kRefuse) return Found::kRefused;
    receiver.deliver(message);
    return Found::kDelivered;
  }
  return std::nullopt;
}

Found LmdbQueue::browse(const std::optional<Position>& after, Receiver& receiver) {
  if (!exists()) return Found::kNothing;
  lookAfterOthers();
  if (after)
    if (const auto found = browseAhead(*after, receiver)) return *found;
  const std::uint32_t seen = arrivals();
  Reader::Snapshot snapshot(m_session.reader());
  QueueScan scan(*m_share, snapshot, after);
  while (scan.next()) {
    if (passOver(scan)) continue;
    scan.markAvailable();
    const StoredMessage message = scan.message();
    const auto verdict = receiver.judge(message);
    if (verdict == Receiver::Verdict::kSkip) continue;
    if (verdict == Receiver::Verdict::kRefuse) return Found::kRefused;
    m_browseAhead.begin(::mdb_txn_id(snapshot.txn()), seen);
    m_browseAhead.startBehind(message.position);
    receiver.deliver(message);
    fill(m_browseAhead, m_browseAhead.grow(), scan);
    return Found::kDelivered;
  }
  return Found::kNothing;
}

void LmdbQueue::waitForArrival(std::uint32_t seen, std::chrono::steady_clock::time_point until) {
  awaitArrival(m_share->slot, seen, until);
  m_session.store().recoverDead();
}

} // namespace bxm
