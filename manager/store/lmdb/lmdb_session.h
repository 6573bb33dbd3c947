#pragma once

#include "manager/store/lmdb/lmdb_queue.h"
#include "manager/store/lmdb/lmdb_store.h"
#include "manager/store/lmdb/take_journal.h"
#include "manager/store/store.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace bxm {

/// One connection to an embedded manager.
class LmdbSession : public StoreSession {
public:
  /// Throws Failure 2025.
  explicit LmdbSession(std::shared_ptr<LmdbStore> store);
  ~LmdbSession() override;

  std::string managerName() const override { return m_store->name(); }
  std::string scratchFolder() const override { return m_store->folder(); }

  std::optional<QueueDefinition> findQueue(std::string_view name) override;
  std::vector<QueueDefinition> listQueues() override;
  bool createQueue(QueueDefinition& definition) override;
  Deleted deleteQueue(std::string_view name, bool purge) override;
  bool commandServerRuns() override;
  void setCommandServer(bool runs) override;
  std::shared_ptr<StoreQueue> open(const QueueDefinition& definition) override;
  Committed commit(PutBatch& puts, BXLONG& reason) override;
  void backout(PutBatch& puts) override;
  Committed put(PutBatch& puts, BXLONG& reason) override;

  /// With full synchronisation: before a get that counts is decided, and after it. The latter says
  /// false when the disk cannot tell whether it knows.
  void prepareJournal();
  bool journal(const std::vector<TakeJournal::Entry>& entries) noexcept;

  LmdbStore& store() { return *m_store; }
  Reader& reader() { return m_reader; }
  ConnectionSlot& connection() { return m_store->runtime().connection(m_slot); }
  std::uint32_t slot() const { return m_slot; }

private:
  std::vector<TakeJournal::Entry> prepareTakes();
  Committed commitTakes(const std::vector<TakeJournal::Entry>& entries, BXLONG& reason) noexcept;
  void dropQuietQueues();
  Committed commitDurably(PutBatch& puts, bool withTakes, BXLONG& reason);
  void uncount(PutBatch& puts);

  std::shared_ptr<LmdbStore> m_store;
  std::uint32_t m_slot;
  Reader m_reader;
  std::unique_ptr<TakeJournal> m_journal;                       ///< only with full synchronisation
  std::map<std::uint32_t, std::shared_ptr<LmdbQueue>> m_queues; ///< by queue id
};

} // namespace bxm
