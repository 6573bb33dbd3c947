#pragma once

#include "manager/store/postgres/postgres_queue.h"
#include "manager/store/store.h"

#include <chrono>
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
  /// On a connection of this session; nullopt when it has been deleted.
  std::optional<QueueDefinition> findQueue(Server& server, std::uint32_t id) const;
  bool alterQueue(QueueDefinition& definition) override;
  Deleted deleteQueue(std::string_view name, bool purge) override;
  ManagerSettings settings() override;
  std::optional<std::int64_t> countsSince() override { return std::nullopt; }
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
  Server& looking();
  /// Where something can be done that is no part of the unit of work.
  Server& aside();
  /// The transaction of a put or get outside of units of work. A put's begins when a place is
  /// reserved for it.
  Server& single();
  /// Rolls it back; who waits knows that it is done.
  void dropSingle(bool waits = true);
  /// Commits it, after a get. Throws Failure, 2124 among them.
  void commitSingle(const std::string& transaction, const PostgresQueue& queue);
  void rememberTransaction(std::string id) { m_transaction = std::move(id); }
  /// A statement of the unit of work failed: its transaction cannot go on, and the commit that the
  /// caller asks for later fails, with all that the unit does until then.
  void loseUnit();
  /// What there is to do for the queues after a commit, of so many puts, when it is due. What goes
  /// wrong there fails nobody's call.
  void lookAfter(const std::map<std::uint32_t, PutBatch::Counts>& counts = {},
                 std::uint64_t bytes = 0);

private:
  QueueDefinition definitionIn(const Reply& reply, int row) const;
  Committed store(Server& server, bool& open, PutBatch& puts, BXLONG& reason);
  /// By what it is found out how a commit ended in which the connection was lost.
  struct Trace {
    std::string transaction;
    std::int64_t unit;          ///< of puts: the number that it leaves
    const PostgresQueue* queue; ///< of gets alone: one that it took from
  };
  Trace traceOfGets() const;
  std::string begin(Server& server);
  Committed finish(Server& server, const Trace& trace, const std::vector<std::int32_t>& wake,
                   BXLONG& reason);
  Committed outcomeOf(Server& server, const Trace& trace, bool crashed);
  Committed findOutcome(Server& lost, const Trace& trace,
                        std::chrono::steady_clock::time_point begun, BXLONG& reason);
  void endUnit(bool committed);
  void tell(const std::string& what) const;
  std::vector<std::int32_t> takenFrom() const;

  const std::string m_name, m_uri;
  std::unique_ptr<Server> m_main, m_side;
  std::map<std::uint32_t, std::shared_ptr<PostgresQueue>> m_queues; ///< by queue id
  bool m_unitIsOpen = false;
  bool m_unitIsLost = false;
  Server* m_single = nullptr;
  std::string m_why; ///< the last commit failed
  bool m_toldOfLookingAfter = false;
  std::string m_life;            ///< of the server: another one after a crash
  std::string m_transaction;     ///< the open one's id, when it has one
  bool m_getsWait = true;        ///< commits of gets alone wait for the server's disk
  std::int64_t m_clockAhead = 0; ///< of the server's clock, ms
};

} // namespace bxm
