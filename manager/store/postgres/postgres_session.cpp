#include "manager/store/postgres/postgres_session.h"

#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/base/random_number.h"
#include "manager/store/postgres/put_statements.h"
#include "manager/store/postgres/schema.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

namespace bxm {

namespace {

constexpr std::size_t kMostQuietQueues = 16;
/// Counted from the commit: a server that was silent has taken its part of it.
constexpr std::chrono::seconds kMostOutcomeWait{30}, kLeastOutcomeWait{2};
constexpr std::chrono::milliseconds kLongestPause{160};
constexpr std::int64_t kOnlyTakes = 0; ///< in place of a unit's number

constexpr const char* kDefinition =
    "SELECT id, name, cluster, max_depth, max_length, persistence,"
    " floor(extract(epoch FROM created))::bigint, floor(extract(epoch FROM altered))::bigint,"
    " default_priority, put_inhibited, get_inhibited, version FROM queue";

/// "committed", "aborted", "in progress", or nothing when the server does not know it (any more).
std::string statusOf(Server& server, const std::string& transaction) {
  try {
    const Reply reply =
        server.runOne("SELECT pg_xact_status($1::text::xid8)", Parameters().add(transaction));
    return reply.isNull(0, 0) ? "" : reply.text(0, 0);
  } catch (const ServerError&) { // a number that this server has not come to yet
    if (!server.alive()) throw;
    return "";
  }
}

} // namespace

PostgresSession::PostgresSession(std::string name, std::string uri, std::unique_ptr<Server> server)
    : m_name(std::move(name)), m_uri(std::move(uri)), m_main(std::move(server)) {
  m_life = begin(*m_main);
}

/// As long as the lock is held nobody deletes the manager. A server counts anew after a crash;
/// one that takes over begins a timeline, and counts on where it was made of a copy at rest.
std::string PostgresSession::begin(Server& server) {
  const Reply reply = server.runOne("SELECT clock_ms(), gets_wait,"
                                    " pg_advisory_lock_shared(lock_class('manager'), 0),"
                                    " (SELECT concat(stats_reset, CASE WHEN NOT pg_is_in_recovery()"
                                    " THEN left(pg_walfile_name(pg_current_wal_lsn()), 8) END)"
                                    " FROM pg_stat_bgwriter)"
                                    " FROM manager");
  m_clockAhead = reply.number(0, 0) - clockNow();
  m_getsWait = reply.number(0, 1) != 0;
  return reply.text(0, 3);
}

PostgresSession::~PostgresSession() {
  try {
    PutBatch none(scratchFolder());
    backout(none);
    m_queues.clear();
    if (m_main->alive()) m_main->run(); // or the server would log that its client was lost
  } catch (const std::exception&) {     // the server gives back what a lost connection had taken
  }
}

std::string PostgresSession::scratchFolder() const {
  const char* folder = std::getenv("TMPDIR");
  return folder && *folder ? folder : "/tmp";
}

std::int64_t PostgresSession::now() { return clockNow() + m_clockAhead; }

// ---- Connections --------------------------------------------------------------------------------

Server& PostgresSession::looking() {
  if (m_unitIsOpen && (m_main->hasFailed() || (m_side && !m_side->alive()))) loseUnit();
  return *m_main;
}

Server& PostgresSession::unit() {
  looking();
  if (!m_unitIsOpen) m_main->add("BEGIN");
  m_unitIsOpen = true;
  return *m_main;
}

void PostgresSession::dropEmptyUnit() {
  m_main->add("ROLLBACK");
  m_main->send();
  m_unitIsOpen = false;
}

Server& PostgresSession::aside() {
  if (!m_unitIsOpen && !m_single) return *m_main;
  if (!m_side) m_side = std::make_unique<Server>(m_uri, schemaOf(m_name));
  return *m_side;
}

Server& PostgresSession::single() {
  if (!m_single) {
    Server& server = aside();
    server.add("BEGIN");
    m_single = &server;
  }
  return *m_single;
}

void PostgresSession::dropSingle(bool waits) {
  if (!m_single) return;
  Server& server = *std::exchange(m_single, nullptr);
  if (!server.alive()) return;
  server.add("ROLLBACK");
  waits ? static_cast<void>(server.run()) : server.send();
}

void PostgresSession::commitSingle(const std::string& transaction, const PostgresQueue& queue) {
  BXLONG reason = BXRC_NONE;
  switch (finish(*m_single, {transaction, kOnlyTakes, &queue}, {}, reason)) {
  case Committed::kDone: m_single = nullptr; return;
  case Committed::kUnknown: reason = BXRC_OUTCOME_UNKNOWN; break;
  default: break;
  }
  dropSingle();
  if (reason == BXRC_CONNECTION_BROKEN) loseUnit();
  throw Failure(reason, m_why);
}

// ---- Definitions --------------------------------------------------------------------------------

QueueDefinition PostgresSession::definitionIn(const Reply& reply, int row) const {
  QueueDefinition definition;
  definition.id = static_cast<std::uint32_t>(reply.number(row, 0));
  definition.name = reply.text(row, 1);
  definition.cluster = reply.text(row, 2);
  definition.maxDepth = static_cast<BXLONG>(reply.number(row, 3));
  definition.maxMessageLength = static_cast<BXLONG>(reply.number(row, 4));
  definition.defaultPersistence = static_cast<BXLONG>(reply.number(row, 5));
  definition.created = reply.number(row, 6);
  definition.altered = reply.number(row, 7);
  definition.defaultPriority = static_cast<BXLONG>(reply.number(row, 8));
  definition.putInhibited = reply.number(row, 9) != 0;
  definition.getInhibited = reply.number(row, 10) != 0;
  definition.version = reply.number(row, 11);
  return definition;
}

std::optional<QueueDefinition> PostgresSession::findQueue(std::string_view name) {
  const Reply found =
      aside().runOne(std::string(kDefinition) + " WHERE name = $1::text", Parameters().add(name));
  if (found.rows() == 0) return std::nullopt;
  return definitionIn(found, 0);
}

std::optional<QueueDefinition> PostgresSession::findQueue(Server& server, std::uint32_t id) const {
  const Reply found = server.runOne(std::string(kDefinition) + " WHERE id = $1::int",
                                    Parameters().add(static_cast<std::int32_t>(id)));
  if (found.rows() == 0) return std::nullopt;
  return definitionIn(found, 0);
}

std::vector<QueueDefinition> PostgresSession::listQueues() {
  const Reply found = aside().runOne(std::string(kDefinition) + " ORDER BY name");
  std::vector<QueueDefinition> all;
  for (int row = 0; row < found.rows(); ++row) all.push_back(definitionIn(found, row));
  return all;
}

namespace {
constexpr const char* kAttributes =
    ", $2::int, $3::int, $4::int, $5::int, $6::int <> 0, $7::int <> 0)";

template <typename First>
Parameters attributesOf(const QueueDefinition& definition, const First& first) {
  return Parameters()
      .add(first)
      .add(definition.maxDepth)
      .add(definition.maxMessageLength)
      .add(definition.defaultPersistence)
      .add(definition.defaultPriority)
      .add(std::int32_t{definition.putInhibited})
      .add(std::int32_t{definition.getInhibited});
}
} // namespace

bool PostgresSession::createQueue(QueueDefinition& definition) {
  const Reply made = aside().runOne(
      std::string(
          "SELECT alter_queue(create_queue($1::text, $8::text, $2::int, $3::int, $4::int)") +
          kAttributes,
      attributesOf(definition, definition.name).add(definition.cluster));
  if (made.isNull(0, 0)) return false;
  definition.id = static_cast<std::uint32_t>(made.number(0, 0));
  return true;
}

bool PostgresSession::alterQueue(QueueDefinition& definition) {
  const auto id = static_cast<std::int32_t>(definition.id);
  Server& server = aside();
  const Reply altered = server.runOne(std::string("SELECT alter_queue($1::int") + kAttributes,
                                      attributesOf(definition, id));
  server.runOne("SELECT wake($1::int[])", Parameters().add(std::vector<std::int32_t>{id}));
  return !altered.isNull(0, 0);
}

/// Who commits puts is waited for, and who comes later finds no queue.
StoreSession::Deleted PostgresSession::deleteQueue(std::string_view name, bool purge) {
  const auto definition = findQueue(name);
  if (!definition) return Deleted::kUnknownQueue;
  const auto id = static_cast<std::int32_t>(definition->id);
  Server& server = single();
  Deleted result = Deleted::kUnknownQueue;
  try {
    server.add("SELECT pg_advisory_xact_lock(lock_class('queue'), $1::int)", Parameters().add(id));
    server.run();
    Segments segments(definition->id);
    if (const auto count = segments.count(server))
      result = purge || *count == 0 ? Deleted::kDone : Deleted::kNotEmpty;
    if (result == Deleted::kDone) {
      server.add("SELECT delete_queue($1::int)", Parameters().add(id));
      server.add("COMMIT");
      server.divide();
      server.add("SELECT wake($1::int[])", Parameters().add(std::vector<std::int32_t>{id}));
      server.divide();
      server.add("SELECT tidy_up()");
      server.run();
      m_single = nullptr;
    }
  } catch (...) {
    dropSingle();
    throw;
  }
  dropSingle();
  return result;
}

ManagerSettings PostgresSession::settings() { return {m_getsWait}; }

bool PostgresSession::commandServerRuns() {
  return aside().runOne("SELECT command_server FROM manager").number(0, 0) != 0;
}

void PostgresSession::setCommandServer(bool runs) {
  aside().runOne("SELECT switch_command_server($1::int <> 0)",
                 Parameters().add(std::int32_t{runs}));
}

std::shared_ptr<StoreQueue> PostgresSession::open(const QueueDefinition& definition) {
  const auto found = m_queues.find(definition.id);
  if (found != m_queues.end()) return found->second;
  if (m_queues.size() >= kMostQuietQueues)
    std::erase_if(m_queues, [](const auto& entry) {
      return entry.second.use_count() == 1 && entry.second->isQuiet();
    });
  return m_queues.emplace(definition.id, std::make_shared<PostgresQueue>(*this, definition))
      .first->second;
}

// ---- Units of work ------------------------------------------------------------------------------

std::vector<std::int32_t> PostgresSession::takenFrom() const {
  std::vector<std::int32_t> ids;
  for (const auto& [id, queue] : m_queues)
    if (queue->taken() > 0) ids.push_back(static_cast<std::int32_t>(id));
  return ids;
}

PostgresSession::Trace PostgresSession::traceOfGets() const {
  Trace trace{m_transaction, kOnlyTakes, nullptr};
  for (const auto& [id, queue] : m_queues)
    if (queue->taken() > 0) trace.queue = queue.get();
  return trace;
}

void PostgresSession::endUnit(bool committed) {
  m_unitIsOpen = false;
  m_transaction.clear();
  for (auto& [id, queue] : m_queues) queue->unitEnded(committed);
}

void PostgresSession::loseUnit() {
  if (!m_unitIsOpen) return;
  try {
    PutBatch none(scratchFolder());
    backout(none);
  } catch (const Failure&) { // the commit tells
  }
  m_unitIsLost = true;
}

void PostgresSession::backout(PutBatch& puts) {
  puts.clear();
  m_unitIsLost = false;
  const bool open = m_unitIsOpen;
  const auto taken = takenFrom();
  endUnit(false);
  if (!open || !m_main->alive()) return;
  m_main->add("ROLLBACK");
  m_main->divide();
  if (!taken.empty()) m_main->add("SELECT give_back($1::int[])", Parameters().add(taken));
  m_main->run();
}

Committed PostgresSession::commit(PutBatch& puts, BXLONG& reason) {
  looking();
  if (m_unitIsLost) {
    backout(puts);
    reason = m_main->alive() ? BXRC_BACKED_OUT : BXRC_CONNECTION_BROKEN;
    return Committed::kFailed;
  }
  if (!m_unitIsOpen && puts.empty()) return Committed::kDone;
  const Committed result = puts.empty() ? finish(*m_main, traceOfGets(), {}, reason)
                                        : store(*m_main, m_unitIsOpen, puts, reason);
  if (result == Committed::kDone || result == Committed::kUnknown) {
    const auto counts = puts.counts();
    const std::uint64_t bytes = puts.bytes();
    puts.clear();
    endUnit(result == Committed::kDone);
    lookAfter(counts, bytes);
  } else {
    if (!m_why.empty()) tell(m_why);
    backout(puts);
  }
  return result;
}

Committed PostgresSession::put(PutBatch& puts, BXLONG& reason) {
  const std::unique_ptr<PutBatch, void (*)(PutBatch*)> emptied(&puts, [](auto* p) { p->clear(); });
  bool open = m_single != nullptr;
  Server& server = open ? *m_single : aside();
  m_single = &server;
  const Committed result = store(server, open, puts, reason);
  const auto counts = puts.counts();
  const std::uint64_t bytes = puts.bytes();
  if (result == Committed::kDone) m_single = nullptr;
  if (!m_why.empty()) tell(m_why);
  dropSingle();
  if (result == Committed::kFailed && reason == BXRC_CONNECTION_BROKEN) loseUnit();
  if (result == Committed::kDone) lookAfter(counts, bytes);
  return result;
}

/// For whoever looks after the database.
void PostgresSession::tell(const std::string& what) const {
  std::fprintf(stderr, "bxm: queue manager %s: %s\n", m_name.c_str(), what.c_str());
}

/// What can be done later must not fail what was committed. What others are in the way of is done
/// another time, and a lost connection shows elsewhere.
void PostgresSession::lookAfter(const std::map<std::uint32_t, PutBatch::Counts>& counts,
                                std::uint64_t bytes) {
  if (m_unitIsOpen) return;
  try {
    for (auto& [id, queue] : m_queues) {
      std::uint64_t put = 0;
      if (const auto found = counts.find(id); found != counts.end())
        for (const std::uint64_t count : found->second) put += count;
      queue->lookAfter(put, put > 0 ? bytes : 0);
    }
  } catch (const ServerError& error) {
    const auto is = [&error](const char* start) { return error.state().starts_with(start); };
    if (!m_main->alive() || is("55P03") || is("57014") || is("40")) return;
    if (!std::exchange(m_toldOfLookingAfter, true))
      tell(std::string("cannot look after the queues: ") + error.what());
  }
}

/// The work first, in one journey where it is not too much for one, then the commit alone: when the
/// connection is lost in it, its transaction's number is known.
Committed PostgresSession::store(Server& server, bool& open, PutBatch& puts, BXLONG& reason) {
  Trace trace{"", static_cast<std::int64_t>(randomNumber() >> 1), nullptr};
  m_why.clear();
  std::vector<std::int32_t> queues;
  for (const auto& [id, counts] : puts.counts()) queues.push_back(static_cast<std::int32_t>(id));
  try {
    for (const std::int32_t id : queues)
      if (!m_queues.at(static_cast<std::uint32_t>(id))->refresh(server))
        return Committed::kQueueGone;
    if (!open) server.add("BEGIN");
    open = true;
    server.add("SELECT begin_commit($1::int[], $2::bigint), pg_current_xact_id()::text",
               Parameters().add(queues).add(trace.unit));
    PutStatements statements(
        server, [this](std::uint32_t id) -> PostgresQueue& { return *m_queues.at(id); });
    puts.forEach([&](const PutBatch::Entry& entry) { statements.add(entry); });
    if (!statements.finish()) return Committed::kQueueGone;
    for (const std::int32_t id : queues) // what was put before is let in
      if (m_single && m_queues.at(static_cast<std::uint32_t>(id))->definition().putInhibited) {
        reason = BXRC_PUT_INHIBITED;
        return Committed::kFailed;
      }
    trace.transaction = statements.transaction();
  } catch (const std::exception& error) {
    reason = reasonOf(error);
    m_why = error.what();
    return Committed::kFailed;
  }
  return finish(server, trace, queues, reason);
}

Committed PostgresSession::finish(Server& server, const Trace& trace,
                                  const std::vector<std::int32_t>& wake, BXLONG& reason) {
  m_why.clear();
  const auto begun = std::chrono::steady_clock::now();
  try {
    if (&server == m_main.get() && m_unitIsOpen)
      for (auto& [id, queue] : m_queues) queue->deleteGot(server);
    if (trace.unit == kOnlyTakes && !m_getsWait) server.add("SET LOCAL synchronous_commit = off");
    server.add("COMMIT");
    const bool done = server.run().back().command() == "COMMIT";
    if (!done) reason = BXRC_BACKED_OUT;
    if (done && !wake.empty()) {
      server.add("SELECT wake($1::int[])", Parameters().add(wake));
      server.send();
    }
    return done ? Committed::kDone : Committed::kFailed;
  } catch (const Failure& error) {
    reason = error.reason();
    const Committed outcome =
        server.alive() ? Committed::kFailed : findOutcome(server, trace, begun, reason);
    if (outcome == Committed::kFailed) m_why = error.what();
    return outcome;
  }
}

/// What is known of a commit by now; kUnknown while it is not over. A transaction's number tells
/// only as long as the server has not crashed: then it may have given it to another one. What gets
/// took is there again when they were not committed; when it is not, others may have taken it.
Committed PostgresSession::outcomeOf(Server& server, const Trace& trace, bool crashed) {
  const std::string status = statusOf(server, trace.transaction);
  if (!crashed && status == "in progress") return Committed::kUnknown;
  const auto told = [](bool done) { return done ? Committed::kDone : Committed::kFailed; };
  if (trace.unit != kOnlyTakes)
    return told(server.runOne("SELECT was_committed($1::bigint)", Parameters().add(trace.unit))
                    .number(0, 0) != 0);
  if (!crashed || status != "committed") return told(status == "committed");
  if (trace.queue && trace.queue->hasLastTaken(server)) return Committed::kFailed;
  throw ServerError(BXRC_OUTCOME_UNKNOWN, "", "the database crashed in a commit of gets");
}

/// The connection was lost in a commit. The server may take a moment to notice and end it.
Committed PostgresSession::findOutcome(Server& lost, const Trace& trace,
                                       std::chrono::steady_clock::time_point begun,
                                       BXLONG& reason) {
  const auto until =
      std::max(begun + kMostOutcomeWait, std::chrono::steady_clock::now() + kLeastOutcomeWait);
  for (std::chrono::milliseconds pause{5}; std::chrono::steady_clock::now() < until;
       std::this_thread::sleep_for(pause = std::min(2 * pause, kLongestPause))) {
    try {
      auto server = std::make_unique<Server>(m_uri, schemaOf(m_name));
      const std::string life = begin(*server);
      const Committed outcome = outcomeOf(*server, trace, life != m_life);
      if (outcome == Committed::kUnknown) continue;
      m_life = life;
      // A server that was started again shows what its standby has not confirmed yet.
      if (outcome == Committed::kDone)
        server->runOne("SELECT pg_logical_emit_message(true, 'bxm', '')");
      for (auto& [id, queue] : m_queues) queue->reconnected();
      if (m_single == &lost) m_single = nullptr;
      (&lost == m_side.get() ? m_side : m_main) = std::move(server);
      if (outcome == Committed::kFailed) reason = BXRC_CONNECTION_BROKEN;
      return outcome;
    } catch (const Failure& error) {
      if (error.reason() == BXRC_OUTCOME_UNKNOWN) break;
      // else the server is not back yet
    }
  }
  std::fprintf(stderr,
               "bxm: the database was lost in a commit to queue manager %s: whether transaction %s "
               "was committed only a look at the queues can tell\n",
               m_name.c_str(), trace.transaction.c_str());
  return Committed::kUnknown;
}

} // namespace bxm
