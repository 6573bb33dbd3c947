#include "manager/store/lmdb/lmdb_session.h"

#include "manager/store/failure.h"
#include "manager/store/kill_point.h"

#include <cstring>
#include <ctime>
#include <deque>

namespace bxm {

namespace {
constexpr std::size_t kMostQuietQueues = 16;
/// Messages that go in one transaction with their queue. The more, the more room it takes on a disk
/// that may be full.
constexpr std::size_t kMostAtOnce = 1000;
} // namespace

LmdbSession::LmdbSession(std::shared_ptr<LmdbStore> store)
    : m_store(std::move(store)), m_slot(m_store->runtime().claimConnection()),
      m_reader(m_store->durable()) {}

LmdbSession::~LmdbSession() {
  bool settled = true;
  for (auto& [id, queue] : m_queues) {
    m_store->settler().leave(queue->consumption());
    settled = settled && queue->consumption().size() == 0;
  }
  m_queues.clear();
  if (settled)
    m_store->runtime().releaseConnection(m_slot);
  else
    m_store->runtime().abandonConnection(m_slot);
}

// ---- Definitions --------------------------------------------------------------------------------

std::optional<QueueDefinition> LmdbSession::findQueue(std::string_view name) {
  const Reader::Snapshot snapshot(m_reader);
  return readDefinition(snapshot.txn(), m_store->durable(), name);
}

std::vector<QueueDefinition> LmdbSession::listQueues() {
  const Reader::Snapshot snapshot(m_reader);
  return readDefinitions(snapshot.txn(), m_store->durable());
}

namespace {

std::uint32_t nextQueueId(MDB_txn* txn, const Durable& durable) {
  const auto stored = readSetting(txn, durable, kSettingNextQueue);
  std::uint32_t id = 0;
  if (!stored || stored->size() != sizeof id)
    throw Failure(BXRC_OBJECT_DAMAGED, "the store has no queue counter");
  std::memcpy(&id, stored->data(), sizeof id);
  const std::uint32_t next = id + 1;
  writeSetting(txn, durable, kSettingNextQueue,
               {reinterpret_cast<const char*>(&next), sizeof next});
  return id;
}

std::uint32_t freeQueueSlot(MDB_txn* txn, const Durable& durable) {
  std::vector<bool> used(kQueueSlots);
  for (const QueueDefinition& queue : readDefinitions(txn, durable)) used[queue.slot] = true;
  for (std::uint32_t slot = 0; slot < kQueueSlots; ++slot)
    if (!used[slot]) return slot;
  throw Failure(BXRC_RESOURCE_PROBLEM,
                "there are " + std::to_string(kQueueSlots) + " queues already");
}

void storeDefinition(MDB_txn* txn, const Durable& durable, const QueueDefinition& definition) {
  const std::string bytes = encodeDefinition(definition);
  MDB_val key{definition.name.size(), const_cast<char*>(definition.name.data())};
  MDB_val value{bytes.size(), const_cast<char*>(bytes.data())};
  if (const int result = ::mdb_put(txn, durable.queues, &key, &value, 0))
    failWithLmdb(result, "writing a queue's definition");
}

} // namespace

bool LmdbSession::createQueue(QueueDefinition& definition) {
  const Durable& durable = m_store->durable();
  WriteTransaction txn(durable);
  if (readDefinition(txn.get(), durable, definition.name)) return false;
  definition.id = nextQueueId(txn.get(), durable);
  definition.slot = freeQueueSlot(txn.get(), durable);
  definition.created = definition.altered = static_cast<std::int64_t>(::time(nullptr));
  storeDefinition(txn.get(), durable, definition);
  writeCounts(txn.get(), durable, definition.id, {});
  // Within the transaction, since others set up the same slot only within one too.
  m_store->runtime().prepareQueue(definition, QueueCounts{}.nextSequence, 0);
  BXM_KILL_POINT("create-before-commit");
  txn.commit();
  BXM_KILL_POINT("create-after-commit");
  return true;
}

StoreSession::Deleted LmdbSession::deleteQueue(std::string_view name, bool purge) {
  const Durable& durable = m_store->durable();
  std::shared_ptr<LmdbQueue> queue;
  std::optional<QueueDefinition> definition;
  bool emptied = false;
  if (!purge) {
    m_store->recoverDead();
    // Before the transaction: it may have to wait for the settler, which may wait to write.
    if (const auto found = findQueue(name))
      queue = std::static_pointer_cast<LmdbQueue>(open(*found));
  }
  {
    WriteTransaction txn(durable);
    definition = readDefinition(txn.get(), durable, name);
    if (!definition) return Deleted::kUnknownQueue;
    // A queue that somebody made just now under the old one's name is not meant.
    if (!purge && (!queue || queue->definition().id != definition->id))
      return Deleted::kUnknownQueue;
    // Nobody commits meanwhile: the depth is exact.
    if (!purge && queue->depthWhileLocked() > 0) return Deleted::kNotEmpty;
    connection().deletingSlot = definition->slot;
    connection().deletingQueue = definition->id;
    deleteDefinition(txn.get(), durable, *definition);
    emptied = m_store->purgeStep(txn, definition->id, kMostAtOnce);
    BXM_KILL_POINT("delete-before-commit");
    txn.commit();
    BXM_KILL_POINT("delete-after-commit");
  }
  m_store->retireQueue(*definition);
  connection().deletingQueue = 0;
  if (!emptied) m_store->purgeDeletedQueues();
  return Deleted::kDone;
}

bool LmdbSession::commandServerRuns() {
  const Reader::Snapshot snapshot(m_reader);
  const auto state = readSetting(snapshot.txn(), m_store->durable(), kSettingCommandServer);
  return !state || *state != "stopped";
}

void LmdbSession::setCommandServer(bool runs) {
  WriteTransaction txn(m_store->durable());
  writeSetting(txn.get(), m_store->durable(), kSettingCommandServer, runs ? "running" : "stopped");
  txn.commit();
}

std::shared_ptr<StoreQueue> LmdbSession::open(const QueueDefinition& definition) {
  const auto found = m_queues.find(definition.id);
  if (found != m_queues.end()) return found->second;
  if (m_queues.size() >= kMostQuietQueues) dropQuietQueues();
  return m_queues.emplace(definition.id, std::make_shared<LmdbQueue>(*this, definition))
      .first->second;
}

void LmdbSession::dropQuietQueues() {
  std::erase_if(m_queues, [](const auto& entry) {
    return entry.second.use_count() == 1 && entry.second->isQuiet();
  });
}

// ---- Units of work ------------------------------------------------------------------------------

Committed LmdbSession::commit(PutBatch& puts, BXLONG& reason) {
  std::uint64_t taken = 0;
  for (const auto& [id, queue] : m_queues) taken += queue->takenCount();
  if (puts.empty() && taken == 0) return Committed::kDone;
  if (!puts.empty() || taken > Settler::kMostUnsettled) return commitDurably(puts, true, reason);
  try {
    return commitTakes(prepareTakes(), reason);
  } catch (const std::exception& error) { // nothing is decided yet
    reason = reasonOf(error);
    backout(puts);
    return Committed::kFailed;
  }
}

/// Whatever can fail in a commit of gets: room for what is to be noted, and what the journal gets.
std::vector<TakeJournal::Entry> LmdbSession::prepareTakes() {
  for (auto& [id, queue] : m_queues)
    m_store->settler().makeRoom(queue->consumption(), queue->takenCount());
  prepareJournal();
  std::vector<TakeJournal::Entry> entries;
  if (m_journal)
    for (auto& [id, queue] : m_queues)
      queue->visitTaken([&entries, queueId = id](const Position& position, auto&) {
        entries.push_back({queueId, position});
      });
  return entries;
}

Committed LmdbSession::commitTakes(const std::vector<TakeJournal::Entry>& entries,
                                   BXLONG& reason) noexcept {
  BXM_KILL_POINT("commit-takes-begin");
  connection().committing = 1; // the commit: from here on whoever recovers finishes it
  BXM_KILL_POINT("commit-takes-decided");
  for (auto& [id, queue] : m_queues) {
    if (!queue->hasTaken()) continue;
    queue->consumeTaken();
    m_store->settler().added(queue->consumption());
  }
  BXM_KILL_POINT("commit-takes-consumed");
  connection().committing = 0;
  if (journal(entries)) return Committed::kDone;
  reason = BXRC_OUTCOME_UNKNOWN;
  return Committed::kUnknown;
}

void LmdbSession::prepareJournal() {
  if (!m_store->syncFull()) return m_journal.reset();
  if (!m_journal)
    m_journal =
        std::make_unique<TakeJournal>(m_store->folder(), m_slot, m_store->durable().storeId());
  if (!m_journal->isHalfFull()) return;
  m_store->settler().settleAll();
  m_journal->settled();
}

bool LmdbSession::journal(const std::vector<TakeJournal::Entry>& entries) noexcept {
  if (!m_journal || entries.empty()) return true;
  try {
    m_journal->append(entries);
    return true;
  } catch (const std::exception&) {
    // What the journal cannot take, the store may still delete.
  }
  try {
    m_store->settler().settleAll();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

Committed LmdbSession::put(PutBatch& puts, BXLONG& reason) {
  return commitDurably(puts, false, reason);
}

void LmdbSession::uncount(PutBatch& puts) {
  for (const auto& [id, count] : puts.counts())
    m_queues.at(id)->access().uncommitted.fetch_sub(count);
  puts.clear();
}

void LmdbSession::backout(PutBatch& puts) {
  BXM_KILL_POINT("backout-begin");
  for (auto& [id, queue] : m_queues) queue->releaseTaken();
  uncount(puts);
  BXM_KILL_POINT("backout-end");
}

} // namespace bxm
