#pragma once

#include "manager/store/log/log_queue.h"
#include "manager/store/log/log_reader.h"
#include "manager/store/log/log_store.h"
#include "manager/store/log/log_writer.h"
#include "manager/store/store.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace bxm {

class Publication;

/// One connection to an embedded manager.
class LogSession : public StoreSession {
public:
  /// Throws Failure 2025.
  explicit LogSession(std::shared_ptr<LogStore> store);
  ~LogSession() override;

  std::string managerName() const override { return m_store->name(); }
  std::string scratchFolder() const override { return m_store->folder().path(); }
  std::int64_t now() override { return clockNow(); }

  std::optional<QueueDefinition> findQueue(std::string_view name) override;
  std::vector<QueueDefinition> listQueues() override;
  bool createQueue(QueueDefinition& definition) override;
  bool alterQueue(QueueDefinition& definition) override;
  Deleted deleteQueue(std::string_view name, bool purge) override;
  ManagerSettings settings() override;
  std::optional<std::int64_t> countsSince() override { return m_store->runtime().made(); }
  bool commandServerRuns() override;
  void setCommandServer(bool runs) override;
  std::shared_ptr<StoreQueue> open(const QueueDefinition& definition) override;
  Committed commit(PutBatch& puts, BXLONG& reason) override;
  void backout(PutBatch& puts) override;
  Committed put(PutBatch& puts, BXLONG& reason) override;

  /// Gives back what dead processes had taken and finishes what they had begun to commit; true
  /// when there was any. What fails is left to a later one.
  bool recoverDead();
  /// With full synchronisation. Throws Failure, 2124 when nobody knows; otherwise it is given back.
  void logLastTaken(LogQueue& queue);

  LogStore& store() { return *m_store; }
  LogReader& reader() { return m_reader; }
  LogWriter& writer() { return m_writer; }
  Unsettled& unsettled() { return m_unsettled; }
  ConnectionSlot& connection() { return m_store->runtime().connection(m_slot); }
  std::uint32_t slot() const { return m_slot; }

private:
  void commitTakes();
  Committed commitDurably(PutBatch& puts, bool withTakes, BXLONG& reason);
  static Committed failLost(PutBatch& puts, BXLONG& reason);
  Committed writeUnit(PutBatch& puts, bool withTakes, BXLONG& reason);
  void beginUnit(std::uint64_t number);
  bool queuesExist(const PutBatch& puts) const;
  void tellWhatComes(const PutBatch& puts, bool withTakes);
  std::vector<TakeGroup> takesOf() const;
  void promiseRoom(const PutBatch& puts);
  void giveRoomBack();
  void publish(const PutBatch& puts, Publication& publication);
  void uncount(PutBatch& puts);
  void dropQuietQueues();

  std::shared_ptr<LogStore> m_store;
  std::uint32_t m_slot;
  LogReader m_reader;
  LogWriter m_writer;
  Unsettled m_unsettled;
  std::map<std::uint32_t, std::shared_ptr<LogQueue>> m_queues; ///< by queue id
  std::map<std::pair<std::uint32_t, int>, std::uint64_t> m_promised;
  bool m_lost = false; ///< a unit of work is on the disk, and not all of it in the index
};

} // namespace bxm
