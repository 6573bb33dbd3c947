#include "manager/store/failure.h"
#include "manager/store/kill_point.h"
#include "manager/store/lmdb/disk_room.h"
#include "manager/store/lmdb/lmdb_session.h"

#include <deque>

namespace bxm {

namespace {

struct QueueDeleted {};

/// Writes the puts of a batch behind what the queues hold, in one transaction with their counts.
class BatchWriter {
public:
  BatchWriter(MDB_txn* txn, const Durable& durable, const PutBatch& puts)
      : m_txn(txn), m_durable(durable) {
    for (const auto& [id, count] : puts.counts())
      if (!readCountsIfThere(txn, durable, id, m_queues[id].counts)) throw QueueDeleted();
    if (const int result = ::mdb_cursor_open(txn, durable.messages, &m_cursor))
      failWithLmdb(result, "writing messages");
    puts.forEach([this](const PutBatch::Entry& entry) { write(entry); });
    for (const auto& [id, queue] : m_queues) writeCounts(m_txn, m_durable, id, queue.counts);
  }
  ~BatchWriter() {
    if (m_cursor) ::mdb_cursor_close(m_cursor);
  }
  BatchWriter(const BatchWriter&) = delete;
  BatchWriter& operator=(const BatchWriter&) = delete;

  std::uint64_t lastOf(std::uint32_t queue) const {
    return m_queues.at(queue).counts.nextSequence - 1;
  }
  std::uint32_t prioritiesOf(std::uint32_t queue) const { return m_queues.at(queue).priorities; }

private:
  struct Queue {
    QueueCounts counts;
    std::uint32_t priorities = 0;
  };

  void write(const PutBatch::Entry& entry) {
    Queue& queue = entry.queue == m_lastId ? *m_last : select(entry.queue);
    MessageKey key(entry.queue, {entry.priority, queue.counts.nextSequence++});
    MDB_val keyValue = key.value(),
            value{entry.record.size(), const_cast<char*>(entry.record.data())};
    if (const int result = ::mdb_cursor_put(m_cursor, &keyValue, &value, 0))
      failWithLmdb(result, "writing messages");
    ++queue.counts.depth;
    queue.priorities |= 1U << entry.priority;
  }

  Queue& select(std::uint32_t id) {
    m_last = &m_queues.at(id);
    m_lastId = id;
    return *m_last;
  }

  MDB_txn* m_txn;
  const Durable& m_durable;
  MDB_cursor* m_cursor = nullptr;
  std::map<std::uint32_t, Queue> m_queues;
  Queue* m_last = nullptr;
  std::uint32_t m_lastId = 0;
};

} // namespace

/// One durable transaction with the puts and, for a unit of work that took messages too, their
/// deletion: it decides about all of it.
Committed LmdbSession::commitDurably(PutBatch& puts, bool withTakes, BXLONG& reason) {
  const Durable& durable = m_store->durable();
  bool committing = false;
  try {
    BXM_KILL_POINT("commit-begin");
    WriteTransaction txn(durable);
    if (!puts.empty()) keepRoomToDelete(durable, puts.bytes());
    {
      const BatchWriter writer(txn.get(), durable, puts);
      for (const auto& [id, count] : puts.counts()) {
        m_queues.at(id)->share()->slot.priorities.fetch_or(writer.prioritiesOf(id));
        // Who takes them later must not need room on a disk that is full by then.
        m_queues.at(id)->share()->takes.reserve(writer.lastOf(id));
      }
    }
    std::vector<Position> taken;
    for (auto& [id, queue] : m_queues) {
      if (!withTakes || !queue->hasTaken()) continue;
      taken.clear();
      queue->visitTaken([&taken](const Position& position, auto&) { taken.push_back(position); });
      deleteMessages(txn.get(), durable, id, taken);
    }
    std::deque<Settling> settlings;
    // In the order in which the settling thread takes its turns.
    std::map<Consumption*, std::uint64_t> counts;
    for (const auto& [id, count] : puts.counts()) counts[&m_queues.at(id)->consumption()] = count;
    for (const auto& [consumption, count] : counts)
      settlings.emplace_back(*consumption, ::mdb_txn_id(txn.get()), count, 0);
    BXM_KILL_POINT("commit-before");
    committing = true;
    txn.commit();
    BXM_KILL_POINT("commit-after");
    for (Settling& settling : settlings) settling.done();
  } catch (const QueueDeleted&) {
    withTakes ? backout(puts) : uncount(puts);
    reason = BXRC_BACKED_OUT;
    return Committed::kQueueGone;
  } catch (const std::exception& error) {
    withTakes ? backout(puts) : uncount(puts);
    reason = reasonOf(error);
    return committing && reason == BXRC_CONNECTION_BROKEN ? Committed::kUnknown
                                                          : Committed::kFailed;
  }
  for (auto& [id, queue] : m_queues)
    if (withTakes && queue->hasTaken()) queue->markTakenDeleted();
  for (const auto& [id, count] : puts.counts()) announceArrival(m_queues.at(id)->share()->slot);
  puts.clear();
  m_store->runtime().noteTransaction(durable.lastTransaction());
  BXM_KILL_POINT("commit-end");
  return Committed::kDone;
}

} // namespace bxm
