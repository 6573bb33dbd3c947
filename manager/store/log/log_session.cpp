#include "manager/store/log/log_session.h"

#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/store/log/publication.h"
#include "manager/store/log/recovery.h"

namespace bxm {

namespace {
constexpr std::size_t kMostQuietQueues = 16;
}

LogSession::LogSession(std::shared_ptr<LogStore> store)
    : m_store(std::move(store)), m_slot(m_store->runtime().claimConnection()),
      m_reader(m_store->files()), m_writer(m_store->files(), m_slot),
      m_unsettled(*m_store, m_writer, m_slot) {
  m_store->settler().join(m_unsettled);
}

LogSession::~LogSession() {
  m_store->settler().leave(m_unsettled);
  bool settled = !m_lost;
  try {
    if (settled)
      for (auto& [id, queue] : m_queues) queue->releaseTaken();
    m_unsettled.settle();
    m_unsettled.reclaimIfDue();
  } catch (const std::exception&) {
    settled = settled && m_unsettled.size() == 0;
  }
  if (m_lost)
    m_writer.abandon();
  else
    settled = m_writer.close() && settled;
  // The entries stay marked as consumed; whoever connects next finds their owner gone.
  if (!settled)
    for (auto& [id, queue] : m_queues) queue->abandon();
  m_queues.clear();
  if (settled)
    m_store->runtime().releaseConnection(m_slot);
  else
    m_store->runtime().abandonConnection(m_slot);
}

bool LogSession::recoverDead() { return bxm::recoverDead(*m_store, m_writer); }

// ---- Definitions --------------------------------------------------------------------------------

std::optional<QueueDefinition> LogSession::findQueue(std::string_view name) {
  return m_store->queues().find(name);
}

std::vector<QueueDefinition> LogSession::listQueues() { return m_store->queues().list(); }

bool LogSession::createQueue(QueueDefinition& definition) {
  return m_store->queues().create(definition, m_slot);
}

bool LogSession::alterQueue(QueueDefinition& definition) {
  return m_store->queues().alter(definition);
}

StoreSession::Deleted LogSession::deleteQueue(std::string_view name, bool purge) {
  if (!purge) recoverDead();
  const auto definition = findQueue(name);
  if (!definition) return Deleted::kUnknownQueue;
  if (!purge && open(*definition)->depth() > 0) return Deleted::kNotEmpty; // drops what has expired
  BXM_KILL_POINT("delete-asked");
  return m_store->queues().remove(*definition, purge, m_slot) ? Deleted::kDone : Deleted::kNotEmpty;
}

ManagerSettings LogSession::settings() { return {m_store->runtime().syncFull() != 0}; }

bool LogSession::commandServerRuns() { return !m_store->runtime().commandServerStopped(); }

void LogSession::setCommandServer(bool runs) { m_store->saveCommandServer(runs); }

std::shared_ptr<StoreQueue> LogSession::open(const QueueDefinition& definition) {
  const auto found = m_queues.find(definition.id);
  if (found != m_queues.end()) return found->second;
  if (m_queues.size() >= kMostQuietQueues) dropQuietQueues();
  return m_queues.emplace(definition.id, std::make_shared<LogQueue>(*this, definition))
      .first->second;
}

void LogSession::dropQuietQueues() {
  m_unsettled.settle(); // recovery looks for what was consumed on the queues that are open
  std::erase_if(m_queues, [](const auto& entry) {
    return entry.second.use_count() == 1 && entry.second->isQuiet();
  });
}

// ---- Units of work ------------------------------------------------------------------------------

Committed LogSession::commit(PutBatch& puts, BXLONG& reason) {
  if (m_lost) return failLost(puts, reason);
  std::size_t taken = 0;
  for (const auto& [id, queue] : m_queues) taken += queue->taken().size();
  if (puts.empty() && taken == 0) return Committed::kDone;
  const bool inMemory = puts.empty() && taken <= Unsettled::kMost;
  if (!inMemory || m_store->runtime().syncFull()) return commitDurably(puts, true, reason);
  try {
    m_unsettled.makeRoom(taken);
  } catch (const std::exception& error) { // nothing is decided yet
    reason = reasonOf(error);
    backout(puts);
    return Committed::kFailed;
  }
  commitTakes();
  return Committed::kDone;
}

/// A commit of gets is decided by one store: from then on whoever recovers finishes it.
void LogSession::commitTakes() {
  BXM_KILL_POINT("commit-takes-begin");
  for (auto& [id, queue] : m_queues)
    queue->access().getsNext = queue->access().gets.load() + queue->taken().size();
  connection().phase = Phase::kConsuming;
  BXM_KILL_POINT("commit-takes-decided");
  for (auto& [id, queue] : m_queues)
    if (!queue->taken().empty()) queue->consumeTaken();
  BXM_KILL_POINT("commit-takes-consumed");
  connection().phase = Phase::kNone;
  m_store->settler().added(m_unsettled);
}

/// Of a connection that could not enter what it had written into the index.
Committed LogSession::failLost(PutBatch& puts, BXLONG& reason) {
  puts.clear();
  reason = BXRC_CONNECTION_BROKEN;
  return Committed::kFailed;
}

Committed LogSession::put(PutBatch& puts, BXLONG& reason) {
  if (m_lost) return failLost(puts, reason);
  return commitDurably(puts, false, reason);
}

Committed LogSession::commitDurably(PutBatch& puts, bool withTakes, BXLONG& reason) {
  Committed result = Committed::kFailed;
  BXM_KILL_POINT("commit-begin");
  try {
    const std::lock_guard writes(m_writer.mutex());
    result = writeUnit(puts, withTakes, reason);
  } catch (const std::exception& error) { // before anything was written
    reason = reasonOf(error);
  }
  if (m_lost) return Committed::kUnknown;
  connection().phase = Phase::kNone;
  BXM_KILL_POINT("commit-end");
  if (result == Committed::kDone) {
    puts.clear();
    return result;
  }
  m_unsettled.reclaimSoon(); // what was written of it
  if (withTakes)
    backout(puts);
  else
    uncount(puts);
  return result;
}

/// The order of the steps is what makes it right: first the number, then the look whether the
/// queues exist, then the record. Whoever deletes a queue takes a later number.
Committed LogSession::writeUnit(PutBatch& puts, bool withTakes, BXLONG& reason) {
  const std::uint64_t number = m_store->runtime().nextNumber();
  if (!queuesExist(puts)) return Committed::kQueueGone;
  promiseRoom(puts);
  tellWhatComes(puts, withTakes);
  beginUnit(number);
  BXM_KILL_POINT("commit-before");
  const auto takes = withTakes ? takesOf() : std::vector<TakeGroup>();
  Publication publication(*m_store, connection());
  for (const auto& [id, counts] : puts.counts()) publication.expect(id);
  const LogWriter::Runs runs = [&puts](const auto& visit) { puts.forEachRun(visit); };
  const auto written = m_writer.write({number, takes, runs, &connection().place}, reason);
  if (written != LogWriter::Result::kDone) {
    giveRoomBack();
    return written == LogWriter::Result::kFailed ? Committed::kFailed : Committed::kUnknown;
  }
  BXM_KILL_POINT("commit-after");
  try {
    publish(puts, publication);
  } catch (const std::exception&) { // whoever finds this connection dead goes on
    m_lost = true;
    puts.clear();
    return Committed::kUnknown;
  }
  if (withTakes) {
    for (auto& [id, queue] : m_queues) queue->markTakenGone();
    if (dropLive(m_store->runtime(), takes)) m_unsettled.reclaimSoon();
  }
  BXM_KILL_POINT("commit-taken");
  for (auto& [id, queue] : m_queues)
    queue->access().committed = queue->access().committedNext.load();
  m_writer.done();
  return Committed::kDone;
}

void LogSession::beginUnit(std::uint64_t number) {
  ConnectionSlot& mine = connection();
  mine.number = number;
  mine.place = mine.published = mine.attempt = 0;
  mine.phase = Phase::kWriting;
}

bool LogSession::queuesExist(const PutBatch& puts) const {
  for (const auto& [id, counts] : puts.counts())
    if (!m_queues.at(id)->exists()) return false;
  return true;
}

/// What is counted once the unit counts, for whoever would have to finish it.
void LogSession::tellWhatComes(const PutBatch& puts, bool withTakes) {
  for (auto& [id, queue] : m_queues) {
    AccessSlot& access = queue->access();
    std::uint64_t count = 0;
    if (const auto put = puts.counts().find(id); put != puts.counts().end())
      for (const std::uint64_t of : put->second) count += of;
    access.committedNext = access.committed.load() + count;
    access.getsNext = access.gets.load() + (withTakes ? queue->taken().size() : 0);
  }
}

std::vector<TakeGroup> LogSession::takesOf() const {
  std::vector<TakeGroup> takes;
  for (const auto& [id, queue] : m_queues)
    for (const std::uint64_t position : queue->taken()) {
      const Place place = Entry::placeOf(queue->share()->index.entry(position).load());
      addTake(takes, m_store->runtime(), place);
    }
  return takes;
}

void LogSession::promiseRoom(const PutBatch& puts) {
  m_promised.clear();
  try {
    for (const auto& [id, counts] : puts.counts())
      for (int priority = 0; priority < kPriorities; ++priority)
        if (const auto count = counts[static_cast<std::size_t>(priority)]; count > 0) {
          m_queues.at(id)->share()->index.promise(priority, count);
          m_promised[{id, priority}] = count;
        }
  } catch (...) {
    giveRoomBack();
    throw;
  }
}

void LogSession::giveRoomBack() {
  for (const auto& [queue, count] : m_promised)
    m_queues.at(queue.first)->share()->index.giveBack(queue.second, count);
  m_promised.clear();
}

/// Needs no memory: the unit is on the disk.
void LogSession::publish(const PutBatch& puts, Publication& publication) {
  auto piece = m_writer.pieces().begin();
  std::uint32_t at = 0;
  const auto visit = [&](std::string_view run, bool) {
    forEachItem(run, [&](const ItemHeader& item, std::string_view payload) {
      while (at == piece->size) {
        ++piece;
        at = 0;
      }
      publication.add({piece->items.file, piece->items.offset + at}, item, payload);
      at += static_cast<std::uint32_t>(itemSize(item.size));
    });
  };
  puts.forEachRun(std::ref(visit));
  for (const LogWriter::Piece& each : m_writer.pieces())
    m_store->runtime().file(each.items.file).total.fetch_add(each.count);
  publication.announce();
}

void LogSession::logLastTaken(LogQueue& queue) {
  const std::lock_guard writes(m_writer.mutex());
  Runtime& runtime = m_store->runtime();
  std::vector<TakeGroup> takes;
  addTake(takes, runtime, Entry::placeOf(queue.share()->index.entry(queue.taken().back()).load()));
  BXLONG reason = BXRC_NONE;
  const LogWriter::Runs none = [](const auto&) {};
  tellWhatComes(PutBatch(scratchFolder()), false);
  queue.access().getsNext = queue.access().gets.load() + 1;
  const std::uint64_t number = runtime.nextNumber();
  beginUnit(number);
  const auto written = m_writer.write({number, takes, none, &connection().place}, reason);
  queue.endLastTaken(written == LogWriter::Result::kDone);
  connection().phase = Phase::kNone;
  m_writer.done();
  if (written != LogWriter::Result::kDone)
    throw Failure(written == LogWriter::Result::kFailed ? reason : BXRC_OUTCOME_UNKNOWN,
                  "what was got cannot be written to the log");
  if (dropLive(runtime, takes)) m_unsettled.reclaimSoon();
}

void LogSession::uncount(PutBatch& puts) {
  for (const auto& [id, counts] : puts.counts())
    for (const std::uint64_t count : counts) m_queues.at(id)->access().puts.fetch_sub(count);
  puts.clear();
}

void LogSession::backout(PutBatch& puts) {
  if (m_lost) return puts.clear();
  BXM_KILL_POINT("backout-begin");
  for (auto& [id, queue] : m_queues) queue->releaseTaken();
  uncount(puts);
  BXM_KILL_POINT("backout-end");
}

} // namespace bxm
