#include "manager/store/postgres/postgres_queue.h"

#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/base/random_number.h"
#include "manager/store/postgres/postgres_session.h"
#include "manager/store/postgres/promises.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace bxm {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// What comes back without a word, of processes that died, is found after this.
constexpr milliseconds kBetweenFullScans{100};
/// A full scan, or a count, is due again after so many times as long as it took.
constexpr int kBetweenExpensive = 20;
/// A share of the room that is left may be used until the depth is looked at again.
constexpr std::uint64_t kRoomShare = 16;
/// So often it is looked up what is gone for good, and after so many gets what may yet come before
/// others.
constexpr milliseconds kBetweenSettling{100};
constexpr std::uint64_t kBetweenBounds = 32;
constexpr seconds kBetweenTidying{1}, kBetweenLooks{1};
constexpr std::size_t kLarge = 8 << 20;
constexpr std::size_t kMostSettled = 32, kMostTidied = 16;
/// How large a segment gets, and after how many puts it is looked at.
constexpr std::uint64_t kSegmentBytes = 16 << 20, kBetweenSizings = 8192;

/// Messages that are looked at on the way to one that matches.
constexpr int kMostLookedAt = 16;
/// Messages that are read together for who browses, and how long they are good for.
constexpr std::size_t kMostReadAhead = 64;
constexpr milliseconds kReadAheadLasts{10};
/// Units of work that have so many messages, and take the next this soon, are given more at once.
constexpr std::uint64_t kLeastForAhead = 64;
constexpr milliseconds kFast{2}, kAheadLasts{10};
constexpr std::size_t kMostAhead = 256, kMostAheadBytes = 256 << 10;

} // namespace

/// Of many sessions that each get one message only some look after what they leave.
PostgresQueue::PostgresQueue(PostgresSession& session, const QueueDefinition& definition)
    : m_session(session), m_definition(definition), m_segments(definition.id) {
  m_settleDue = m_tidyDue = Clock::now() + std::chrono::milliseconds(randomNumber() % 100);
}

PostgresQueue::~PostgresQueue() { endWait(); }

bool PostgresQueue::refresh(Server& server) {
  m_gone = m_gone || !m_segments.refresh(server);
  if (!m_gone && m_segments.version() != m_definition.version) {
    const BXLONG before = m_definition.maxDepth;
    if (const auto now = m_session.findQueue(server, m_definition.id)) m_definition = *now;
    m_definition.version = m_segments.version();
    if (m_definition.maxDepth != before) m_roomLeft = 0;
  }
  return !m_gone;
}

const QueueDefinition& PostgresQueue::latestDefinition() {
  m_segments.forget();
  refresh(m_session.looking());
  return m_definition;
}

void PostgresQueue::unitEnded(bool committed) {
  if (!committed && m_taken > 0) m_anewDue = {};
  if (m_lockedAt < m_locked.size()) m_anewDue = {};
  m_locked.clear();
  m_lockedAt = m_deleted = 0;
  m_ahead.clear();
  m_taken = m_reserved = m_published = 0;
  m_publications = 0;
}

// ---- Depth --------------------------------------------------------------------------------------

/// Of what is put and not committed others tell the first few one by one, then in doubling steps.
std::uint64_t PostgresQueue::counted(Server& server, std::uint64_t limit) {
  const auto count = m_segments.count(server, limit);
  m_gone = m_gone || !count;
  return count.value_or(0);
}

std::uint64_t PostgresQueue::depth() {
  return counted(m_taken > 0 ? m_session.aside() : m_session.looking(), 0);
}

QueueFigures PostgresQueue::figures() {
  return m_segments.figures(m_taken > 0 ? m_session.aside() : m_session.looking());
}

/// By locks that end with the connection, not with a unit of work; nobody waits for them, and
/// nobody is kept out.
void PostgresQueue::noteUse(bool reads, bool writes) {
  Server& server = m_session.looking();
  for (const auto& [wanted, told, number] :
       {std::tuple(reads, &m_reads, key() * 2), std::tuple(writes, &m_writes, key() * 2 + 1)}) {
    if (!wanted || std::exchange(*told, true)) continue;
    server.add("SELECT pg_advisory_lock_shared(lock_class('floor'), $1::int)",
               Parameters().add(number));
    server.send();
  }
}

/// Whether the maximum depth has been raised since it was looked at.
bool PostgresQueue::mayHoldMore() {
  const BXLONG before = m_definition.maxDepth;
  return latestDefinition().maxDepth > before;
}

bool PostgresQueue::reserve(bool syncpoint) {
  if (m_gone) return true; // the put is told
  try {
    if (m_roomLeft > 0 && Clock::now() < m_roomUntil)
      --m_roomLeft;
    else if (!findRoom(syncpoint) && !(mayHoldMore() && findRoom(syncpoint)))
      return false;
    if (syncpoint) publishReserved();
    return true;
  } catch (const Failure&) {
    syncpoint ? m_session.loseUnit() : m_session.dropSingle();
    throw;
  }
}

/// Near the limit each put is told to others before the depth is looked at: of two that meet there
/// none passes it.
bool PostgresQueue::findRoom(bool syncpoint) {
  const auto begin = Clock::now();
  Server& server = syncpoint ? m_session.unit() : m_session.single();
  if (!syncpoint || m_published <= m_reserved) {
    publish(server, 0);
    server.run();
    if (syncpoint) ++m_published;
  }
  const auto most = static_cast<std::uint64_t>(m_definition.maxDepth);
  std::uint64_t depth = counted(m_taken > 0 ? m_session.aside() : server, most);
  if (syncpoint) depth -= std::min(depth, m_published - m_reserved - 1); // told, and not yet used
  if (depth > most) {
    if (!syncpoint) m_session.dropSingle();
    return false;
  }
  m_roomLeft = (most - depth) / kRoomShare;
  const auto end = Clock::now();
  m_roomUntil =
      end + std::max<Clock::duration>(milliseconds(100), (end - begin) * kBetweenExpensive);
  return true;
}

void PostgresQueue::publish(Server& server, int exponent) {
  promisePuts(server, m_segments.returned(), m_publications, exponent);
  m_publications = std::min(m_publications + 1, kMostPromises);
}

void PostgresQueue::publishReserved() {
  if (++m_reserved <= m_published) return;
  Server& server = m_session.unit();
  const std::uint64_t more = m_published < 4 ? 1 : std::min(m_published, m_roomLeft + 1);
  const int exponent = static_cast<int>(std::bit_width(more)) - 1;
  publish(server, exponent);
  m_published += std::uint64_t{1} << exponent;
  if (m_published <= 4)
    server.run();
  else
    server.send();
}

void PostgresQueue::unreserve() {
  m_session.dropSingle();
  if (m_reserved > 0) --m_reserved;
}

// ---- Looking ------------------------------------------------------------------------------------

/// The first messages behind a position; nullopt when the queue is gone.
std::optional<std::vector<PostgresQueue::Seen>>
PostgresQueue::look(const std::optional<Position>& after, int most) {
  Server& server = m_session.looking();
  deleteGot(server);
  for (;;) {
    if (!refresh(server)) return std::nullopt;
    std::vector<Arm> arms = m_segments.arms(false);
    if (after) {
      std::erase_if(arms, [&](const Arm& arm) { return arm.priority > after->priority; });
      for (Arm& arm : arms)
        if (arm.priority == after->priority)
          arm.from = std::max(arm.from, static_cast<std::int64_t>(after->sequence) + 1);
    }
    const auto fit = (std::size_t{1} << 20) / std::max<std::size_t>(m_segments.longest(), 1);
    const int pages =
        static_cast<int>(std::clamp<std::size_t>(fit, 1, static_cast<std::size_t>(most)));
    Parameters parameters;
    parameters.add(key()).add(pages);
    for (const Arm& arm : arms) parameters.add(arm.from - 1);
    allowTime(server);
    const Reply reply = server.runOne(m_segments.lookStatement(arms), parameters);
    if (reply.rows() == 0 || reply.number(0, 0) != m_segments.version()) {
      m_segments.forget();
      continue;
    }
    std::vector<Seen> seen;
    for (int row = 0; row < reply.rows() && !reply.isNull(row, 2); ++row)
      seen.push_back({{static_cast<int>(reply.number(row, 2)),
                       static_cast<std::uint64_t>(reply.number(row, 3))},
                      reply.text(row, 4),
                      reply.number(row, 1)});
    return seen;
  }
}

/// The next message for a browse. Who goes on and on is given those that were read together, for a
/// moment: so long a browse may be behind what others do.
const PostgresQueue::Seen* PostgresQueue::next(const std::optional<Position>& after) {
  const bool goesOn = after && m_aheadAt > 0 && m_aheadAt <= m_ahead.size() &&
                      m_ahead[m_aheadAt - 1].position.priority == after->priority &&
                      m_ahead[m_aheadAt - 1].position.sequence == after->sequence;
  if (!goesOn || m_aheadAt == m_ahead.size() || Clock::now() >= m_aheadUntil) {
    const auto most = goesOn ? std::min<std::size_t>(2 * m_ahead.size(), kMostReadAhead) : 1;
    auto page = look(after, static_cast<int>(most));
    if (!page || page->empty()) return nullptr;
    m_ahead = std::move(*page);
    m_aheadAt = 0;
    m_aheadUntil = Clock::now() + kReadAheadLasts;
  }
  return &m_ahead[m_aheadAt++];
}

Found PostgresQueue::browse(const std::optional<Position>& after, Receiver& receiver) {
  for (std::optional<Position> at = after;;) {
    const Seen* seen = next(at);
    if (!seen) return Found::kNothing;
    const StoredMessage message{seen->position, seen->stored, seen->now};
    switch (receiver.judge(message)) {
    case Receiver::Verdict::kSkip: at = message.position; break;
    case Receiver::Verdict::kRefuse: --m_aheadAt; return Found::kRefused;
    case Receiver::Verdict::kAccept:
      receiver.deliver(message);
      endWait();
      return Found::kDelivered;
    }
  }
}

// ---- Taking -------------------------------------------------------------------------------------

Found PostgresQueue::take(Receiver& receiver, bool syncpoint) {
  const bool began = syncpoint && !m_session.unitIsOpen();
  const Found found = takeFirst(receiver, syncpoint);
  if (began && found != Found::kDelivered) m_session.dropEmptyUnit();
  return found;
}

Found PostgresQueue::takeAt(const Position& position, Receiver& receiver, bool syncpoint) {
  if (position.sequence == 0) return Found::kNothing;
  const auto seen = look(Position{position.priority, position.sequence - 1}, 1);
  if (!seen || seen->empty() || seen->front().position.priority != position.priority ||
      seen->front().position.sequence != position.sequence)
    return Found::kNothing;
  switch (receiver.judge({position, seen->front().stored, seen->front().now})) {
  case Receiver::Verdict::kSkip: return Found::kNothing;
  case Receiver::Verdict::kRefuse: return Found::kRefused;
  case Receiver::Verdict::kAccept: break;
  }
  const bool began = syncpoint && !m_session.unitIsOpen();
  const Found found = takeExactly(position, receiver, syncpoint);
  if (began && found != Found::kDelivered) m_session.dropEmptyUnit();
  return found;
}

/// What the scans of this session found unavailable is not looked at again, unless something was
/// given back or some time has passed.
Found PostgresQueue::takeFirst(Receiver& receiver, bool syncpoint) {
  const auto room = receiver.room();
  while (mayGet(m_session.looking())) {
    if (!room || *room < m_segments.longest()) return takeJudged(receiver, syncpoint);
    if (syncpoint && takeLocked(receiver)) return Found::kDelivered;
    const bool quick = Clock::now() < m_anewDue;
    const std::size_t most = syncpoint ? howManyAhead() : 1;
    std::vector<Arm> arms = m_segments.arms(quick);
    const bool narrowed = quick && narrow(arms);
    switch (most > 1 ? lockSome(arms, quick, most)
                     : tryTake(arms, {syncpoint, quick, false}, receiver)) {
    case Took::kOne:
      if (most > 1) deliverLocked(receiver);
      return Found::kDelivered;
    case Took::kStale: break;
    case Took::kNothing:
      if (narrowed) break;
      m_anewDue = {};
      if (!quick) return Found::kNothing;
    }
  }
  return Found::kNothing;
}

/// Leaves the arms that may have something, up to the first one that is not put into any more: a
/// statement over many segments has much to begin with. When nothing is there, it is known by then.
bool PostgresQueue::narrow(std::vector<Arm>& arms) const {
  std::erase_if(arms, [](const Arm& arm) { return arm.from == Segment::kNothing; });
  const auto sealed = std::find_if(
      arms.begin(), arms.end(), [this](const Arm& arm) { return !m_segments.isLast(arm.segment); });
  if (sealed == arms.end() || sealed + 1 == arms.end()) return false;
  arms.erase(sealed + 1, arms.end());
  return true;
}

Found PostgresQueue::takeJudged(Receiver& receiver, bool syncpoint) {
  std::optional<Position> at;
  for (int most = 1;; most = kMostLookedAt) {
    const auto page = look(at, most);
    if (!page || page->empty()) return Found::kNothing;
    for (const Seen& seen : *page) {
      at = seen.position;
      switch (receiver.judge({seen.position, seen.stored, seen.now})) {
      case Receiver::Verdict::kSkip: continue;
      case Receiver::Verdict::kRefuse: return Found::kRefused;
      case Receiver::Verdict::kAccept: break;
      }
      const Found found = takeExactly(seen.position, receiver, syncpoint);
      if (found != Found::kNothing) return found;
    }
  }
}

/// The message that the receiver has accepted, unless somebody else has it by now.
Found PostgresQueue::takeExactly(const Position& position, Receiver& receiver, bool syncpoint) {
  const auto sequence = static_cast<std::int64_t>(position.sequence);
  while (mayGet(m_session.looking())) {
    std::vector<Arm> arms = m_segments.arms(false);
    std::erase_if(arms, [&](const Arm& arm) {
      return arm.priority != position.priority || arm.from > sequence;
    });
    for (Arm& arm : arms) arm.from = sequence;
    const Took took = tryTake(arms, {syncpoint, false, true}, receiver);
    if (took != Took::kStale) return took == Took::kOne ? Found::kDelivered : Found::kNothing;
  }
  return Found::kNothing;
}

/// The server's time limit counts while it sends: a large message may take a slow network long.
void PostgresQueue::allowTime(Server& server) const {
  if (m_segments.longest() > kLarge)
    server.add("SELECT set_config('statement_timeout', '10min', true)");
}

std::vector<Reply> PostgresQueue::ask(Server& server, const std::string& statement,
                                      const Parameters& parameters, bool syncpoint) {
  const bool bounds = m_boundHeld && ++m_sinceBounded >= kBetweenBounds;
  try {
    if (syncpoint) deleteGot(server);
    allowTime(server);
    if (bounds) server.add("SELECT settled_below() << 20"); // before the look that it is to bound
    server.add(statement, parameters);
    std::vector<Reply> replies = server.run();
    if (bounds) {
      m_settledBelow = (replies.end() - 2)->number(0, 0);
      m_sinceBounded = 0;
    }
    return replies;
  } catch (const Failure&) {
    syncpoint ? m_session.loseUnit() : m_session.dropSingle();
    throw;
  }
}

/// What a scan tells of the queue, and where the next one may begin.
PostgresQueue::Took PostgresQueue::learn(const Reply& reply, const std::vector<Arm>& arms,
                                         bool fromStarts) {
  if (reply.rows() == 0 || reply.number(0, 0) != m_segments.version()) {
    m_segments.forget();
    return Took::kStale;
  }
  const bool any = !reply.isNull(0, 2);
  if (!any && fromStarts && reply.number(0, 1) != m_returned) {
    m_anewDue = {};
    return Took::kStale;
  }
  // The arms behind the one where it ended are still as they were before something was given back.
  if (reply.number(0, 1) != m_returned) m_segments.forgetStarts();
  m_returned = reply.number(0, 1);
  if (!arms.empty()) {
    const int last = reply.rows() - 1;
    remember(arms, any ? static_cast<std::size_t>(reply.number(last, 2)) : arms.size(),
             any ? reply.number(last, 4) : 0);
  }
  return any ? Took::kOne : Took::kNothing;
}

Parameters PostgresQueue::scanParameters(const std::vector<Arm>& arms, bool fromStarts) const {
  Parameters parameters;
  parameters.add(key()).add(m_segments.version()).add(fromStarts ? m_returned : std::int64_t{-1});
  for (const Arm& arm : arms) parameters.add(arm.from);
  return parameters;
}

/// From the floors, so that for a while it need not be again.
void PostgresQueue::scanned(Clock::time_point begin) {
  const auto end = Clock::now();
  m_anewDue = end + std::max<Clock::duration>(kBetweenFullScans, (end - begin) * kBetweenExpensive);
}

PostgresQueue::Took PostgresQueue::tryTake(const std::vector<Arm>& arms, const Taking& how,
                                           Receiver& receiver) {
  const auto begin = Clock::now();
  Server& server = how.syncpoint ? m_session.unit() : m_session.single();
  const auto replies = ask(server, m_segments.takeStatement(arms, how.exactly),
                           scanParameters(arms, how.fromStarts), how.syncpoint);
  const Reply& reply = replies.back();
  static const std::vector<Arm> kNone;
  const Took told = learn(reply, how.exactly ? kNone : arms, how.fromStarts);
  if (told != Took::kStale && !how.fromStarts && !how.exactly) scanned(begin);
  if (told != Took::kOne) {
    if (!how.syncpoint) m_session.dropSingle(false);
    return told;
  }
  // A get is committed when the message is here: it would be gone with a connection lost before.
  const Position position{static_cast<int>(reply.number(0, 3)),
                          static_cast<std::uint64_t>(reply.number(0, 4))};
  m_lastTaken = {position, static_cast<int>(reply.number(0, 8))};
  if (how.syncpoint)
    m_session.rememberTransaction(reply.text(0, 6));
  else
    m_session.commitSingle(reply.text(0, 6), *this);
  took(how.syncpoint);
  receiver.deliver({position, reply.bytes(0, 5), reply.number(0, 7)});
  return Took::kOne;
}

// ---- Units of work that take many ---------------------------------------------------------------

/// A unit of work that takes one message after the other, and fast, is given as many more at once
/// as it has: they are its own, as if it had got them, until it ends.
std::size_t PostgresQueue::howManyAhead() const {
  if (m_taken < kLeastForAhead || Clock::now() - m_lastTook > kFast) return 1;
  const auto fit =
      std::max<std::size_t>(kMostAheadBytes / std::max<std::size_t>(m_segments.longest(), 1), 1);
  return std::min({static_cast<std::size_t>(m_taken), kMostAhead, fit});
}

PostgresQueue::Took PostgresQueue::lockSome(const std::vector<Arm>& arms, bool fromStarts,
                                            std::size_t most) {
  Parameters parameters = scanParameters(arms, fromStarts);
  parameters.add(static_cast<std::int32_t>(most));
  const auto begin = Clock::now();
  const auto replies = ask(m_session.unit(), m_segments.lockStatement(arms), parameters, true);
  const Reply& reply = replies.back();
  const Took told = learn(reply, arms, fromStarts);
  if (told != Took::kStale && !fromStarts) scanned(begin);
  m_locked.clear();
  m_lockedAt = m_deleted = 0;
  if (told != Took::kOne) return told;
  for (int row = 0; row < reply.rows(); ++row)
    m_locked.push_back({{{static_cast<int>(reply.number(row, 3)),
                          static_cast<std::uint64_t>(reply.number(row, 4))},
                         reply.text(row, 5),
                         reply.number(row, 7)},
                        static_cast<int>(reply.number(row, 8)),
                        reply.text(row, 9)});
  m_lockedUntil = Clock::now() + kAheadLasts;
  m_session.rememberTransaction(reply.text(0, 6));
  return Took::kOne;
}

/// After a moment others may have put what comes first: then it is looked again, and those that are
/// locked are found again, too.
bool PostgresQueue::takeLocked(Receiver& receiver) {
  if (m_lockedAt == m_locked.size() || Clock::now() >= m_lockedUntil) {
    if (m_lockedAt < m_locked.size()) m_anewDue = {};
    m_locked.resize(m_lockedAt);
    return false;
  }
  deliverLocked(receiver);
  return true;
}

void PostgresQueue::deliverLocked(Receiver& receiver) {
  const auto& [seen, place, at] = m_locked[m_lockedAt++];
  m_lastTaken = {seen.position, place};
  took(true);
  receiver.deliver({seen.position, seen.stored, seen.now});
}

void PostgresQueue::deleteGot(Server& server) {
  std::map<int, ArrayOf> places;
  for (; m_deleted < m_lockedAt; ++m_deleted)
    places.try_emplace(m_locked[m_deleted].place, ArrayOf::Element::kTid)
        .first->second.add(m_locked[m_deleted].at);
  for (auto& [place, array] : places)
    server.add(m_segments.deleteStatement(place), Parameters().addRaw(array.take()));
}

/// Nothing was available in the arms before the one that had a message, and in that one before it.
/// In the last segment what is being committed may still come before what is seen.
void PostgresQueue::remember(const std::vector<Arm>& arms, std::size_t found,
                             std::int64_t sequence) {
  for (std::size_t i = 0; i < arms.size() && i <= found; ++i) {
    const auto priority = static_cast<std::size_t>(arms[i].priority);
    Segment& segment = m_segments.at(arms[i].segment);
    std::int64_t start = i == found ? sequence + 1 : Segment::kNothing;
    if (m_segments.isLast(arms[i].segment) && start > m_settledBelow) {
      m_boundHeld = m_boundHeld || i == found;
      start = m_settledBelow;
    }
    segment.start.at(priority) = std::max(start, segment.floor.at(priority));
  }
}

bool PostgresQueue::hasLastTaken(Server& server) const {
  const Reply reply =
      server.runOne("SELECT EXISTS (SELECT FROM " + m_segments.tableAt(m_lastTaken.place) +
                        " WHERE priority = $1::int AND sequence = $2::bigint)",
                    Parameters()
                        .add(m_lastTaken.position.priority)
                        .add(static_cast<std::int64_t>(m_lastTaken.position.sequence)));
  return reply.number(0, 0) != 0;
}

void PostgresQueue::took(bool syncpoint) {
  ++m_sinceSettled;
  m_ahead.clear();
  if (syncpoint) {
    ++m_taken;
    m_lastTook = Clock::now();
  }
  endWait();
  if (!syncpoint) m_session.lookAfter();
}

// ---- Waiting ------------------------------------------------------------------------------------

/// Who begins to wait looks once more before it sleeps: what came meanwhile was not announced.
void PostgresQueue::waitForArrival(std::uint32_t seen, Clock::time_point until) {
  if (m_arrivals != seen) return;
  ++m_arrivals;
  Server& server = m_session.aside();
  if (m_waitsOn != &server) {
    endWait();
    server.runOne("SELECT start_wait($1::int)", Parameters().add(key()));
    m_waitsOn = &server;
    return;
  }
  if (m_sinceSettled > 0) m_session.lookAfter();
  server.awaitNotice(std::min(until, Clock::now() + kBetweenLooks));
  if (Clock::now() >= until) endWait();
}

void PostgresQueue::endWait() {
  if (!m_waitsOn) return;
  Server& server = *std::exchange(m_waitsOn, nullptr);
  if (!server.alive()) return;
  try {
    server.add("SELECT pg_advisory_unlock_shared(lock_class('segment'), $1::int)",
               Parameters().add(key()));
    server.send();
  } catch (const Failure&) { // the lock of a lost connection is gone
  }
}

// ---- What is left of the segments ---------------------------------------------------------------

void PostgresQueue::lookAfter(std::uint64_t put, std::uint64_t bytes) {
  if (m_gone) return;
  m_ahead.clear();
  if (m_sinceSettled > 0 && Clock::now() >= m_settleDue) settle();
  sealIfLarge(put, bytes);
}

/// Looks up what is gone for good: where a scan may begin, and which segments are empty. What is
/// taken and not committed is still seen here. Of many segments those at the head are looked at.
void PostgresQueue::settle() {
  m_sinceSettled = 0;
  m_settleDue = Clock::now() + kBetweenSettling;
  Server& server = m_session.looking();
  if (!refresh(server)) return;
  std::vector<Arm> arms = m_segments.arms(false);
  if (arms.empty()) return;
  if (arms.size() > kMostSettled) arms.erase(arms.begin() + kMostSettled, arms.end());
  Parameters from;
  for (const Arm& arm : arms) from.add(arm.from);
  server.add("SELECT settled_below() << 20");
  server.add(m_segments.remainderStatement(arms), from);
  const std::vector<Reply> replies = server.run();
  m_settledBelow = (replies.end() - 2)->number(0, 0);
  for (std::size_t i = 0; i < arms.size(); ++i) {
    const auto priority = static_cast<std::size_t>(arms[i].priority);
    const int column = static_cast<int>(i);
    Segment& segment = m_segments.at(arms[i].segment);
    std::int64_t floor =
        replies.back().isNull(0, column) ? Segment::kNothing : replies.back().number(0, column);
    if (m_segments.isLast(arms[i].segment)) floor = std::min(floor, m_settledBelow);
    segment.floor.at(priority) = std::max(floor, arms[i].from);
    segment.start.at(priority) = std::max(segment.start.at(priority), floor);
  }
  freeSegments();
  if (Clock::now() >= m_tidyDue) tidy();
}

void PostgresQueue::freeSegments() {
  for (std::size_t i = 0; !m_segments.isLast(i); ++i) {
    const Segment& segment = m_segments.at(i);
    bool empty = true;
    for (int priority = 0; priority < 10; ++priority)
      empty = empty && (!segment.mayHold(priority) ||
                        segment.floor.at(static_cast<std::size_t>(priority)) == Segment::kNothing);
    if (!empty) continue;
    const Reply freed = m_session.looking().runOne("SELECT free_segment($1::int, $2::int)",
                                                   Parameters().add(key()).add(segment.number));
    if (freed.number(0, 0) != 0) m_segments.forget();
  }
}

/// Other sessions' scans begin where this one's do, and what has expired goes: in the order of an
/// index, or the database would look through all the rest where it does not know it yet.
void PostgresQueue::tidy() {
  m_tidyDue = Clock::now() + kBetweenTidying;
  Server& server = m_session.looking();
  const std::size_t count = m_segments.all().size();
  for (std::size_t i = 0; i < std::min(count, kMostTidied); ++i) {
    const Segment& segment = m_segments.at(m_tidyAt++ % count);
    server.add("DELETE FROM " + m_segments.tableOf(segment) + " WHERE ctid IN (SELECT ctid FROM " +
               m_segments.tableOf(segment) +
               " WHERE expires <= clock_ms() ORDER BY expires LIMIT 1000 FOR UPDATE SKIP LOCKED)");
  }
  for (const Segment& segment : m_segments.all())
    for (int priority = 0; priority < 10; ++priority)
      if (const auto floor = segment.floor.at(static_cast<std::size_t>(priority)); floor > 0)
        server.add("INSERT INTO floor VALUES ($1::int, $2::int, $3::int, $4::bigint)"
                   " ON CONFLICT (queue, number, priority) DO UPDATE"
                   " SET sequence = greatest(floor.sequence, excluded.sequence)",
                   Parameters().add(key()).add(segment.number).add(priority).add(floor));
  server.add("SELECT tidy_up()");
  server.run();
}

/// What is put next goes into a new segment, so that this one will be empty some day.
void PostgresQueue::sealIfLarge(std::uint64_t put, std::uint64_t bytes) {
  m_putSinceSized += put;
  m_bytesSinceSized += bytes;
  if (m_putSinceSized < kBetweenSizings && m_bytesSinceSized < kSegmentBytes / 4) return;
  m_putSinceSized = m_bytesSinceSized = 0;
  Server& server = m_session.looking();
  if (!refresh(server)) return;
  const Segment& last = m_segments.last();
  server.add("SELECT tidy_up()");
  server.add("SELECT pg_table_size($1::text::regclass)",
             Parameters().add(m_segments.tableOf(last)));
  if (server.run().back().number(0, 0) < static_cast<std::int64_t>(kSegmentBytes)) return;
  server.runOne("SELECT seal($1::int, $2::int)", Parameters().add(key()).add(last.number));
  m_segments.forget();
}

} // namespace bxm
