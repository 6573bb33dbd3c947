#include "manager/store/log/log_queue.h"

#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/store/log/log_session.h"
#include "manager/store/message.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace bxm {

namespace {

/// A look for what has expired is due again after so many times as long as it took.
constexpr int kBetweenExpiryScans = 20;
constexpr int kMostCounts = 100; ///< to find a depth that was there at one time

std::int64_t coarseNow() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

} // namespace

LogQueue::LogQueue(LogSession& session, const QueueDefinition& definition)
    : m_session(session), m_definition(definition),
      m_share(session.store().share(definition.id, definition.slot)),
      m_accessSlot(
          session.store().runtime().claimAccess(session.slot(), definition.slot, definition.id)),
      m_access(session.store().runtime().access(m_accessSlot)) {}

const QueueDefinition& LogQueue::definition() {
  const std::uint32_t alterations = m_share->slot.alterations.load();
  if (alterations != m_alterationsSeen) {
    const auto now = m_session.store().queues().at(m_share->number);
    if (now && now->id == m_definition.id) m_definition = *now;
    m_alterationsSeen = alterations;
  }
  return m_definition;
}

LogQueue::~LogQueue() {
  if (m_abandoned) return;
  releaseTaken();
  m_access.puts = m_access.committed.load();
  m_session.store().runtime().releaseAccess(m_accessSlot);
}

// ---- Depth --------------------------------------------------------------------------------------

std::uint64_t LogQueue::counted() {
  const std::uint32_t present = m_share->slot.accesses.load();
  if (m_accesses.empty() || present != m_accessesSeen) {
    const Runtime& runtime = m_session.store().runtime();
    m_accesses.clear();
    for (std::uint32_t i = 0; i < runtime.accessLimit(); ++i)
      if (runtime.access(i).queueId.load() == m_share->id) m_accesses.push_back(&runtime.access(i));
    m_accessesSeen = present;
  }
  std::int64_t depth = 0;
  for (const AccessSlot* access : m_accesses)
    depth += static_cast<std::int64_t>(access->puts.load() - access->gets.load());
  return depth > 0 ? static_cast<std::uint64_t>(depth) : 0;
}

std::uint64_t LogQueue::gone() const {
  std::uint64_t gets = 0;
  for (const AccessSlot* access : m_accesses) gets += access->gets.load();
  return gets;
}

/// Exact where nothing is got while it is counted; for that it tries a while.
std::uint64_t LogQueue::depth() {
  lookAfterOthers();
  dropExpired();
  std::uint64_t depth = counted();
  for (int left = kMostCounts; left > 0; --left) {
    const std::uint64_t before = gone();
    depth = counted();
    if (gone() == before) break;
  }
  return depth;
}

/// Each connection counts for itself; read one after the other they are of nearly one time.
QueueFigures LogQueue::figures() {
  lookAfterOthers();
  dropExpired();
  counted(); // knows all accesses
  QueueFigures figures;
  for (const AccessSlot* access : m_accesses) {
    const std::uint64_t committed = access->committed.load(), puts = access->puts.load();
    figures.puts += committed;
    figures.gets += access->gets.load();
    figures.uncommitted += puts - std::min(puts, committed);
    if (access->connection.load() == 0) continue;
    figures.readers += access->uses.load() & AccessSlot::kReads ? 1 : 0;
    figures.writers += access->uses.load() & AccessSlot::kWrites ? 1 : 0;
  }
  return figures;
}

void LogQueue::noteUse(bool reads, bool writes) {
  m_access.uses.fetch_or((reads ? AccessSlot::kReads : 0) | (writes ? AccessSlot::kWrites : 0));
}

bool LogQueue::reserve(bool /*syncpoint*/) {
  const auto most = static_cast<std::uint64_t>(definition().maxDepth);
  for (;;) {
    // Counted before it is checked: of two that meet at the limit, none passes it, and who deletes
    // an empty queue sees it, or is seen here.
    m_access.puts.fetch_add(1);
    BXM_KILL_POINT("put-reserved");
    try {
      if (counted() > most) dropExpired();
      if (counted() > most && (!recoverOthers() || counted() > most)) {
        unreserve();
        return false;
      }
    } catch (...) {
      unreserve();
      throw;
    }
    const QueueState state = m_share->slot.now();
    if (state.kind != QueueKind::kDeleting || state.id != m_share->id) return true;
    unreserve();
    m_session.store().queues().keepAlive(m_share->number, m_share->id);
  }
}

void LogQueue::unreserve() { m_access.puts.fetch_sub(1); }

// ---- Expiry -------------------------------------------------------------------------------------

bool LogQueue::hasExpired(const StoredMessage& message) const {
  const std::int64_t expiry = messageExpiry(message.stored);
  return expiry != 0 && expiry <= clockNow();
}

/// Drops what has expired, when anything may have. It looks at all messages that expire, so it is
/// not done too often.
void LogQueue::dropExpired() {
  std::int64_t next = m_share->slot.nextExpiry.load();
  if (next == QueueSlot::kNever || next > clockNow() || !exists()) return;
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  if (begin.time_since_epoch().count() < m_share->expiryScanDue.load()) return;
  // Puts from here on lower it again.
  m_share->slot.nextExpiry = QueueSlot::kNever;
  next = QueueSlot::kNever;
  m_share->index.forEach([&](int priority, std::uint64_t sequence, Word& entry) {
    Candidate candidate{{priority, sequence}, &entry, entry.load(), {}};
    if (!(candidate.word & Entry::kExpires) || Entry::stateOf(candidate.word) != Entry::kAvailable)
      return;
    const auto item = m_session.reader().read(Entry::placeOf(candidate.word));
    if (!item || entry.load() != candidate.word) return;
    candidate.message.stored = storedIn(item->header, item->payload);
    if (!hasExpired(candidate.message)) {
      next = std::min(next, messageExpiry(candidate.message.stored));
      return;
    }
    m_session.unsettled().makeRoom(1);
    if (claim(candidate, false)) consumeAlone(candidate.position);
  });
  std::int64_t seen = m_share->slot.nextExpiry.load();
  while (next < seen && !m_share->slot.nextExpiry.compare_exchange_weak(seen, next)) {
  }
  const auto due = begin + (Clock::now() - begin) * kBetweenExpiryScans;
  m_share->expiryScanDue = due.time_since_epoch().count();
}

// ---- Others -------------------------------------------------------------------------------------

/// Gives back what dead processes had taken of this queue: their messages stand before those that
/// a scan finds. The kernel is asked about others at most once in a tick of the coarse clock, some
/// milliseconds, since a reader comes by here for each message.
void LogQueue::lookAfterOthers() {
  const std::int64_t tick = coarseNow();
  if (m_share->lookedAfter.load(std::memory_order_relaxed) == tick) return;
  if (m_share->lookedAfter.exchange(tick, std::memory_order_relaxed) != tick) recoverOthers();
}

/// True when something was given back.
bool LogQueue::recoverOthers() {
  const Runtime& runtime = m_session.store().runtime();
  const std::uint32_t limit = runtime.accessLimit();
  for (std::uint32_t slot = 0; slot < limit; ++slot) {
    const AccessSlot& access = runtime.access(slot);
    const std::uint32_t owner = access.connection.load();
    if (slot == m_accessSlot || owner == 0 || access.queueId.load() != m_share->id) continue;
    if (runtime.hasDied(owner - 1)) return m_session.recoverDead();
  }
  // Who was deleting the queue need not have had it open.
  const QueueState state = m_share->slot.now();
  const bool undecided = state.id == m_share->id && state.kind != QueueKind::kLive;
  return undecided && runtime.hasDied(state.owner) && m_session.recoverDead();
}

// ---- Scanning -----------------------------------------------------------------------------------

/// Reads the message of an available entry. What is read is the message only if the entry still
/// says so afterwards: else its file may have been used again.
LogQueue::Look LogQueue::look(Candidate& candidate) {
  if (Entry::stateOf(candidate.word) != Entry::kAvailable) return Look::kUnavailable;
  const auto item = m_session.reader().read(Entry::placeOf(candidate.word));
  if (candidate.entry->load() != candidate.word) return Look::kChanged;
  const bool right = item && item->header.queue == m_share->id &&
                     item->header.priority == candidate.position.priority;
  if (!right) {
    const std::uint64_t damaged = Entry::with(candidate.word, Entry::kDamaged, 0);
    if (!candidate.entry->compare_exchange_strong(candidate.word, damaged)) return Look::kChanged;
    const Place place = Entry::placeOf(candidate.word);
    throw Failure(BXRC_OBJECT_DAMAGED,
                  "a message on queue " + m_definition.name + " is damaged (" +
                      m_session.store().folder().pathOf(LogFiles::fileName(place.file)) + " at " +
                      std::to_string(place.offset) + ")");
  }
  candidate.message = {candidate.position, storedIn(item->header, item->payload), 0};
  if (!(candidate.word & Entry::kExpires) || !hasExpired(candidate.message)) return Look::kMessage;
  m_session.unsettled().makeRoom(1);
  if (claim(candidate, false)) consumeAlone(candidate.position);
  return Look::kUnavailable;
}

/// Walks the messages in order, from a position on or from where some may be available, and raises
/// the floors over those that are not.
template <typename Visit>
Found LogQueue::scan(const std::optional<Position>& after, Visit visit) {
  const QueueIndex& index = m_share->index;
  Found found = Found::kNothing;
  for (int priority = after ? after->priority : kPriorities - 1; priority >= 0; --priority) {
    if (!index.mayHold(priority)) continue;
    PrioritySlot& slot = index.of(priority);
    const std::uint64_t floor = slot.floor.load();
    std::uint64_t at = std::max(floorSequence(floor), slot.base.load()), unavailable = 0;
    bool solid = true; // all from the floor on was unavailable
    if (after && after->priority == priority && after->sequence >= at) {
      at = after->sequence + 1;
      solid = false;
    }
    Step step = Step::kGoOn;
    std::uint64_t end = std::min(slot.tail.load(), index.readyOf(priority));
    while (step != Step::kDone && (at < end || at < (end = index.endOf(priority)))) {
      Word& entry = index.entry(priority, at);
      Candidate candidate{{priority, at}, &entry, entry.load(), {}};
      const Look seen = look(candidate);
      if (seen == Look::kChanged) continue;
      step = seen == Look::kMessage ? visit(candidate, found) : Step::kGoOn;
      if (step == Step::kAgain) continue;
      if (step == Step::kAvailable || (step == Step::kDone && entry.load() == candidate.word))
        solid = false;
      ++at;
      if (solid) unavailable = at;
    }
    if (unavailable > 0) raiseFloor(slot.floor, floor, unavailable);
    if (step == Step::kDone) break;
  }
  return found;
}

// ---- Taking -------------------------------------------------------------------------------------

/// Of a get outside of units of work the intent is told before: who finds the process dead sees
/// whether it was done.
bool LogQueue::claim(const Candidate& candidate, bool syncpoint) {
  std::uint64_t seen = candidate.word;
  if (!syncpoint) {
    m_access.getsNext = m_access.gets.load() + 1;
    m_access.single = packedPosition(candidate.position.priority, candidate.position.sequence) + 1;
  }
  const auto state = syncpoint ? Entry::kTaken : Entry::kConsumed;
  const bool mine = candidate.entry->compare_exchange_strong(
      seen, Entry::with(candidate.word, state, m_session.slot()));
  if (mine) {
    BXM_KILL_POINT("take-claimed");
  } else if (!syncpoint) {
    m_access.single = 0;
  }
  return mine;
}

void LogQueue::consumeAlone(const Position& position) {
  m_access.gets.fetch_add(1);
  m_access.single = 0;
  const std::uint64_t packed = packedPosition(position.priority, position.sequence);
  m_session.unsettled().add(*m_share, &packed, 1);
  BXM_KILL_POINT("take-consumed");
  m_session.store().settler().added(m_session.unsettled());
}

LogQueue::Step LogQueue::tryTake(Candidate& candidate, Receiver& receiver, bool syncpoint,
                                 Found& found) {
  switch (receiver.judge(candidate.message)) {
  case Receiver::Verdict::kSkip: return Step::kAvailable;
  case Receiver::Verdict::kRefuse: found = Found::kRefused; return Step::kDone;
  case Receiver::Verdict::kAccept: break;
  }
  if (syncpoint && m_taken.size() == m_taken.capacity())
    m_taken.reserve(std::max<std::size_t>(64, 2 * m_taken.size()));
  if (!claim(candidate, syncpoint)) return Step::kAgain;
  if (syncpoint)
    m_taken.push_back(packedPosition(candidate.position.priority, candidate.position.sequence));
  else
    consumeAlone(candidate.position);
  receiver.deliver(candidate.message);
  found = Found::kDelivered;
  return Step::kDone;
}

Found LogQueue::take(Receiver& receiver, bool syncpoint) {
  if (!exists()) return Found::kNothing;
  if (!syncpoint && m_session.store().runtime().syncFull()) return logged(take(receiver, true));
  if (!syncpoint) m_session.unsettled().makeRoom(1);
  lookAfterOthers();
  const auto once = [&] {
    return scan(std::nullopt, [&](Candidate& candidate, Found& found) {
      return tryTake(candidate, receiver, syncpoint, found);
    });
  };
  const Found found = once();
  if (found != Found::kNothing || !recoverOthers()) return found;
  return once();
}

/// A get outside of units of work that waits for the disk: what was taken last is logged alone.
Found LogQueue::logged(Found found) {
  if (found == Found::kDelivered) m_session.logLastTaken(*this);
  return found;
}

void LogQueue::endLastTaken(bool gone) {
  const std::uint64_t position = m_taken.back();
  auto& entry = m_share->index.entry(position);
  entry = gone ? Entry::with(entry.load(), Entry::kGone, m_session.slot())
               : Entry::with(entry.load(), Entry::kAvailable, 0);
  if (gone) {
    m_access.gets = m_access.getsNext.load();
  } else {
    lowerFloor(m_share->index.of(priorityIn(position)).floor, sequenceIn(position));
  }
  m_taken.pop_back();
}

Found LogQueue::takeAt(const Position& position, Receiver& receiver, bool syncpoint) {
  lookAfterOthers();
  const QueueIndex& index = m_share->index;
  if (!exists() || !index.mayHold(position.priority)) return Found::kNothing;
  if (!syncpoint && m_session.store().runtime().syncFull())
    return logged(takeAt(position, receiver, true));
  if (!syncpoint) m_session.unsettled().makeRoom(1);
  if (position.sequence >= index.endOf(position.priority)) return Found::kNothing;
  Word& entry = index.entry(position.priority, position.sequence);
  for (Found found = Found::kNothing;;) {
    Candidate candidate{position, &entry, entry.load(), {}};
    const Look seen = look(candidate);
    if (seen == Look::kChanged) continue;
    if (seen == Look::kUnavailable) return Found::kNothing;
    if (tryTake(candidate, receiver, syncpoint, found) != Step::kAgain) return found;
  }
}

Found LogQueue::browse(const std::optional<Position>& after, Receiver& receiver) {
  if (!exists()) return Found::kNothing;
  lookAfterOthers();
  return scan(after, [&](Candidate& candidate, Found& found) {
    const auto verdict = receiver.judge(candidate.message);
    if (verdict == Receiver::Verdict::kSkip) return Step::kAvailable;
    found = verdict == Receiver::Verdict::kRefuse ? Found::kRefused : Found::kDelivered;
    if (found == Found::kDelivered) receiver.deliver(candidate.message);
    return Step::kDone;
  });
}

void LogQueue::waitForArrival(std::uint32_t seen, std::chrono::steady_clock::time_point until) {
  awaitArrival(m_share->slot, seen, until);
  m_session.recoverDead();
}

// ---- What the unit of work has taken ------------------------------------------------------------

void LogQueue::consumeTaken() {
  for (const std::uint64_t position : m_taken) {
    auto& entry = m_share->index.entry(position);
    entry = Entry::with(entry.load(), Entry::kConsumed, m_session.slot());
    BXM_KILL_POINT("consume-entry");
  }
  m_access.gets = m_access.getsNext.load();
  m_session.unsettled().add(*m_share, m_taken.data(), m_taken.size());
  m_taken.clear();
}

void LogQueue::markTakenGone() {
  for (const std::uint64_t position : m_taken) {
    m_share->index.markGone(position, m_session.slot());
    BXM_KILL_POINT("commit-entry");
  }
  m_access.gets = m_access.getsNext.load();
  m_taken.clear();
}

void LogQueue::releaseTaken() {
  if (m_taken.empty()) return;
  std::array<std::uint64_t, kPriorities> lowest;
  lowest.fill(UINT64_MAX);
  for (const std::uint64_t position : m_taken) {
    auto& entry = m_share->index.entry(position);
    entry = Entry::with(entry.load(), Entry::kAvailable, 0);
    auto& low = lowest[static_cast<std::size_t>(priorityIn(position))];
    low = std::min(low, sequenceIn(position));
    BXM_KILL_POINT("release-entry");
  }
  for (int priority = 0; priority < kPriorities; ++priority)
    if (const std::uint64_t low = lowest[static_cast<std::size_t>(priority)]; low != UINT64_MAX)
      lowerFloor(m_share->index.of(priority).floor, low);
  BXM_KILL_POINT("release-lowered");
  m_taken.clear();
  announceArrival(m_share->slot);
}

} // namespace bxm
