#include "manager/store/lmdb/lmdb_store.h"

#include "manager/store/failure.h"
#include "manager/store/kill_point.h"
#include "manager/store/lmdb/lmdb_session.h"
#include "manager/store/lmdb/take_journal.h"

#include <algorithm>

namespace bxm {

namespace {

constexpr std::size_t kPurgeStep = 20'000;
constexpr std::size_t kMostIdleShares = 16;

/// Sets up the runtime's slot of a queue from what the durable store holds of it.
void prepareFromDurable(const Runtime& runtime, MDB_cursor* messages, const QueueDefinition& queue,
                        const QueueCounts& counts) {
  std::uint64_t base = counts.nextSequence;
  std::uint32_t priorities = 0;
  for (int priority = BXPRI_MAXIMUM; priority >= 0; --priority) {
    MessageKey key(queue.id, {priority, 0});
    MDB_val keyValue = key.value(), value{};
    if (::mdb_cursor_get(messages, &keyValue, &value, MDB_SET_RANGE) != MDB_SUCCESS) continue;
    const Position first = MessageKey::positionOf(keyValue);
    if (MessageKey::queueOf(keyValue) != queue.id || first.priority != priority) continue;
    base = std::min(base, first.sequence);
    priorities |= 1U << priority;
  }
  runtime.prepareQueue(queue, base, priorities);
}

} // namespace

namespace {

/// After a boot: deletes what was got with full synchronisation and not deleted yet.
void replayJournals(const Durable& durable, const std::string& folder) {
  std::map<std::uint32_t, std::vector<Position>> consumed;
  readTakeJournals(folder, durable.storeId(), [&](const TakeJournal::Entry& entry) {
    consumed[entry.queue].push_back(entry.position);
  });
  if (consumed.empty()) return;
  WriteTransaction txn(durable);
  for (const auto& [queue, positions] : consumed)
    deleteMessages(txn.get(), durable, queue, positions);
  txn.commit();
  BXM_KILL_POINT("replay-committed");
  removeTakeJournals(folder);
}

} // namespace

LmdbStore::LmdbStore(std::string name, const std::string& folder)
    : m_name(std::move(name)), m_folder(folder), m_durable(folder, Durable::Open::kExisting),
      m_runtime(
          folder, m_durable.storeId(), [this] { return m_durable.lastTransaction(); },
          [this](const Runtime& runtime) {
            replayJournals(m_durable, m_folder);
            Reader reader(m_durable);
            const Reader::Snapshot snapshot(reader);
            for (const QueueDefinition& queue : readDefinitions(snapshot.txn(), m_durable))
              prepareFromDurable(runtime, snapshot.messages(), queue,
                                 readCounts(snapshot.txn(), m_durable, queue.id));
          }),
      m_settler(m_durable, m_runtime) {}

std::unique_ptr<StoreSession> LmdbStore::connect() {
  m_durable.clearStaleReaders();
  recoverDead();
  readSettings();
  return std::make_unique<LmdbSession>(shared_from_this());
}

void LmdbStore::readSettings() {
  Reader reader(m_durable);
  bool purges = false;
  {
    const Reader::Snapshot snapshot(reader);
    m_syncFull = readSetting(snapshot.txn(), m_durable, kSettingSync) == "full";
    purges = !readPurges(snapshot.txn(), m_durable).empty();
  }
  if (purges) purgeDeletedQueues();
}

std::shared_ptr<QueueShare> LmdbStore::share(std::uint32_t queueId, std::uint32_t queueSlot) {
  const std::lock_guard guard(m_sharesMutex);
  if (const auto found = m_shares.find(queueId); found != m_shares.end()) return found->second;
  // Each holds a descriptor: those that nobody uses make room, those of deleted queues at once.
  std::size_t idle = 0;
  std::erase_if(m_shares, [&idle](const auto& entry) {
    return entry.second.use_count() == 1 && (!entry.second->exists() || ++idle > kMostIdleShares);
  });
  auto share = std::make_shared<QueueShare>(m_folder, queueId, m_runtime.queue(queueSlot));
  if (share->exists())
    m_shares.emplace(queueId, share);
  else
    removeTakeMap(m_folder, queueId); // the queue was deleted meanwhile
  return share;
}

// ---- Deleted queues -----------------------------------------------------------------------------

void LmdbStore::retireQueue(const QueueDefinition& queue) {
  QueueSlot& slot = m_runtime.queue(queue.slot);
  std::uint32_t id = queue.id;
  slot.queueId.compare_exchange_strong(id, 0);
  announceArrival(slot);
  removeTakeMap(m_folder, queue.id);
  const std::lock_guard guard(m_sharesMutex);
  m_shares.erase(queue.id);
}

namespace {

/// Deletes up to most messages of a queue; true when none is left.
bool purgeSome(MDB_txn* txn, const Durable& durable, std::uint32_t queue, std::size_t most) {
  MDB_cursor* cursor = nullptr;
  if (const int result = ::mdb_cursor_open(txn, durable.messages, &cursor))
    failWithLmdb(result, "deleting a queue");
  const std::unique_ptr<MDB_cursor, void (*)(MDB_cursor*)> closes(cursor, ::mdb_cursor_close);
  MessageKey first(queue, {BXPRI_MAXIMUM, 0});
  MDB_val key = first.value(), value{};
  int result = ::mdb_cursor_get(cursor, &key, &value, MDB_SET_RANGE);
  for (std::size_t done = 0; result == MDB_SUCCESS && MessageKey::queueOf(key) == queue; ++done) {
    if (done == most) return false;
    if ((result = ::mdb_cursor_del(cursor, 0)) != MDB_SUCCESS) break;
    result = ::mdb_cursor_get(cursor, &key, &value, MDB_NEXT);
  }
  if (result != MDB_SUCCESS && result != MDB_NOTFOUND) failWithLmdb(result, "deleting a queue");
  return true;
}

} // namespace

bool LmdbStore::purgeStep(const WriteTransaction& txn, std::uint32_t queue,
                          std::size_t most) const {
  const bool emptied = purgeSome(txn.get(), m_durable, queue, most);
  if (emptied) removePurge(txn.get(), m_durable, queue);
  return emptied;
}

std::vector<QueueDefinition> LmdbStore::deletedQueues() {
  Reader reader(m_durable);
  const Reader::Snapshot snapshot(reader);
  return readPurges(snapshot.txn(), m_durable);
}

void LmdbStore::purgeDeletedQueues() {
  try {
    purgeAll();
  } catch (const Failure&) {
    // The queues are gone in any case; what a full disk does not let go of now, it does later.
  }
}

void LmdbStore::purgeAll() {
  for (const QueueDefinition& queue : deletedQueues()) {
    BXM_KILL_POINT("purge-begin");
    retireQueue(queue);
    bool emptied = false;
    while (!emptied) {
      WriteTransaction txn(m_durable);
      emptied = purgeStep(txn, queue.id, kPurgeStep);
      txn.commit();
      BXM_KILL_POINT("purge-step");
    }
  }
}

// ---- Recovery -----------------------------------------------------------------------------------

bool LmdbStore::recoverDead() {
  bool any = false;
  const std::uint32_t limit = m_runtime.connectionLimit();
  for (std::uint32_t slot = 0; slot < limit; ++slot) {
    const StopSignalsWait stopsWait; // whoever is claimed counts as alive
    if (!m_runtime.claimDead(slot)) continue;
    try {
      recoverConnection(slot);
    } catch (const std::exception&) {
      m_runtime.abandonConnection(slot); // another try is due when the store can delete again
      continue;
    }
    m_runtime.releaseConnection(slot);
    any = true;
  }
  if (any) {
    m_durable.clearStaleReaders();
    for (const QueueDefinition& queue : deletedQueues()) retireQueue(queue);
  }
  return any;
}

void LmdbStore::recoverConnection(std::uint32_t slot) {
  // Who dies in a commit may leave it on the disk and not yet announced: snapshots would still show
  // what it deleted, and what is given back below could be taken a second time. The next write
  // transaction announces it.
  { const WriteTransaction announces(m_durable); }
  const std::uint32_t limit = m_runtime.accessLimit();
  const bool committing = m_runtime.connection(slot).committing.load() == 1;
  std::vector<std::uint32_t> accesses;
  for (std::uint32_t access = 0; access < limit; ++access)
    if (m_runtime.access(access).connection.load() == slot + 1) accesses.push_back(access);
  // A commit that was decided is decided for all queues before anything is given back.
  if (committing)
    for (const std::uint32_t access : accesses) recoverAccess(access, true);
  m_runtime.connection(slot).committing = 0;
  BXM_KILL_POINT("recover-decided");
  recoverDeletion(m_runtime.connection(slot));
  for (const std::uint32_t access : accesses) {
    recoverAccess(access, false);
    m_runtime.releaseAccess(access);
  }
}

void LmdbStore::recoverDeletion(const ConnectionSlot& connection) {
  QueueDefinition queue;
  queue.id = connection.deletingQueue.load();
  queue.slot = connection.deletingSlot.load();
  if (queue.id == 0) return;
  Reader reader(m_durable);
  const Reader::Snapshot snapshot(reader);
  const auto queues = readDefinitions(snapshot.txn(), m_durable);
  if (std::none_of(queues.begin(), queues.end(), [&](const auto& q) { return q.id == queue.id; }))
    retireQueue(queue);
}

void LmdbStore::recoverAccess(std::uint32_t number, bool finishCommit) {
  AccessSlot& access = m_runtime.access(number);
  const std::uint32_t queueSlot = access.queueSlot.load(), queueId = access.queueId.load();
  if (queueId == 0 || m_runtime.queue(queueSlot).queueId.load() != queueId) return;
  const auto queue = share(queueId, queueSlot);
  const std::uint64_t lowest = access.lowest.load(), highest = access.highest.load();
  std::vector<Position> consumed;
  queue->takes.forEachOf(number, lowest, highest, [&](std::uint64_t sequence, auto& entry) {
    const std::uint32_t value = entry.load();
    const Position position{TakeEntry::priorityOf(value), sequence};
    if (TakeEntry::stateOf(value) == TakeEntry::kConsumed) {
      consumed.push_back(position);
    } else if (finishCommit) {
      entry.store(TakeEntry::make(TakeEntry::kConsumed, number, position.priority));
    } else {
      entry.store(TakeEntry::kFree);
      BXM_KILL_POINT("recover-freed");
    }
  });
  if (finishCommit || lowest > highest) return;
  // Also for entries that are free already: their owner, or an earlier recoverer, may have died
  // between freeing them and lowering the floor.
  for (auto& floor : queue->slot.floors) lowerFloor(floor, lowest);
  if (!consumed.empty()) {
    access.consumed = consumed.size();
    WriteTransaction txn(m_durable);
    deleteMessages(txn.get(), m_durable, queueId, consumed);
    std::mutex turn; // the slot is the recoverer's alone
    Settling settling(access, turn, ::mdb_txn_id(txn.get()), 0, consumed.size());
    txn.commit();
    settling.done();
    BXM_KILL_POINT("recover-settled");
    for (const Position& position : consumed)
      queue->takes.at(position.sequence).store(TakeEntry::deleted());
  }
  announceArrival(queue->slot);
}

} // namespace bxm
