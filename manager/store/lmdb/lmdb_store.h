#pragma once

#include "manager/store/catalog.h"
#include "manager/store/lmdb/durable.h"
#include "manager/store/lmdb/runtime.h"
#include "manager/store/lmdb/settler.h"
#include "manager/store/lmdb/take_map.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace bxm {

/// What all connections of this process share about one queue.
struct QueueShare {
  QueueShare(const std::string& folder, std::uint32_t queueId, QueueSlot& queueSlot)
      : id(queueId), slot(queueSlot), takes(folder, queueId, queueSlot.base.load()) {}
  bool exists() const { return slot.queueId.load() == id; }

  const std::uint32_t id;
  QueueSlot& slot;
  TakeMap takes;
  std::uint64_t settledSinceTrim = 0; ///< guarded by the settler's pass
  /// When this process last looked whether others that use the queue have died.
  std::atomic<std::int64_t> lookedAfter{0};

  std::mutex depthMutex; ///< guards the two below
  std::uint64_t depthTransaction = UINT64_MAX;
  std::uint64_t durableDepth = 0;
};

/// One embedded manager as this process has it open. Thread-safe. LMDB allows one environment a
/// process, so there is one object for each folder (see Home).
class LmdbStore : public std::enable_shared_from_this<LmdbStore> {
public:
  /// Throws Failure: 2059, 2035.
  LmdbStore(std::string name, const std::string& folder);

  std::unique_ptr<StoreSession> connect();

  const std::string& name() const { return m_name; }
  const std::string& folder() const { return m_folder; }
  const Durable& durable() const { return m_durable; }
  Runtime& runtime() { return m_runtime; }
  Settler& settler() { return m_settler; }

  /// Throws Failure 2102 when descriptors or memory run out.
  std::shared_ptr<QueueShare> share(std::uint32_t queueId, std::uint32_t queueSlot);

  /// Gives back what dead processes had taken and finishes what they had begun to commit. True
  /// when there was any.
  bool recoverDead();

  /// Deletes messages of deleted queues, also those that a dead process left. What fails is left to
  /// a later connection.
  void purgeDeletedQueues();

  /// Within the transaction that deletes a queue or a later one, deletes up to most of its
  /// messages. True when none is left.
  bool purgeStep(const WriteTransaction& txn, std::uint32_t queue, std::size_t most) const;
  /// Nobody finds the deleted queue any more: its slot is free, who waits on it wakes up.
  void retireQueue(const QueueDefinition& queue);

  bool syncFull() const { return m_syncFull; }
  void readSettings();

private:
  /// Those whose messages are still to be deleted.
  std::vector<QueueDefinition> deletedQueues();
  void purgeAll();
  void recoverConnection(std::uint32_t slot);
  void recoverDeletion(const ConnectionSlot& connection);
  /// Finishes the commit of what an access slot has taken, or gives it back and settles the rest.
  void recoverAccess(std::uint32_t number, bool finishCommit);

  std::string m_name;
  std::string m_folder;
  Durable m_durable;
  Runtime m_runtime;
  std::atomic<bool> m_syncFull{false};
  std::mutex m_sharesMutex;
  std::map<std::uint32_t, std::shared_ptr<QueueShare>> m_shares;
  Settler m_settler; ///< last: its thread uses the others
};

} // namespace bxm
