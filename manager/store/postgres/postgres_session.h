#pragma once

#include "manager/store/postgres/postgres_queue.h"
#include "manager/store/store.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace bxm {

/// One connection to a manager in a database. What is taken and put under syncpoint is one open
/// transaction; what happens beside it has a second connection, made where it is first needed.
class PostgresSession : public StoreSession {
public:
  PostgresSession(std::string name, std::string uri, std::unique_ptr<Server> server);
  ~PostgresSession() override;

  std::string managerName() const override { return m_name; }
  std::string scratchFolder() const override;
  std::int64_t now() override;

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

  /// The unit of work's connection; with its transaction begun, if it is not yet.
  Server& unit();
  bool unitIsOpen() const { return m_unitIsOpen; }
  /// Ends a transaction that has done nothing yet.
  void dropEmptyUnit();
  /// Where messages are looked at; what the unit of work has taken is not seen.
  Server& looking() { return *m_main; }
  /// Where something can be done that is no part of the unit of work.
  Server& aside();
  /// The transaction of a put outside of units of work, begun before the put itself.
  Server& single();
  void dropSingle();
  void rememberTransaction(std::string id) { m_transaction = std::move(id); }
  /// A statement of the unit of work failed: its transaction cannot go on, and the commit that the
  /// caller asks for later fails.
  void loseUnit();

private:
  QueueDefinition definitionIn(const Reply& reply, int row) const;
  Committed store(Server& server, bool& open, PutBatch& puts, BXLONG& reason);
  Committed finish(Server& server, std::int64_t unit, const std::vector<std::int32_t>& wake,
                   BXLONG& reason);
  Committed findOutcome(Server& lost, std::int64_t unit, BXLONG& reason);
  void lookAfter(const std::map<std::uint32_t, PutBatch::Counts>& counts, std::uint64_t bytes);
  void endUnit(bool committed);
  std::vector<std::int32_t> takenFrom() const;

  const std::string m_name, m_uri;
  std::unique_ptr<Server> m_main, m_side;
  std::map<std::uint32_t, std::shared_ptr<PostgresQueue>> m_queues; ///< by queue id
  bool m_unitIsOpen = false;
  bool m_unitIsLost = false;
  Server* m_single = nullptr;
  std::string m_transaction;     ///< the open one's id, when it has one
  bool m_getsWait = true;        ///< commits of gets alone wait for the server's disk
  std::int64_t m_clockAhead = 0; ///< of the server's clock, ms
};

} // namespace bxm
