#pragma once

#include "manager/store/postgres/segments.h"
#include "manager/store/store.h"

#include <chrono>
#include <optional>

namespace bxm {

class PostgresSession;

/// One queue as one session uses it.
class PostgresQueue : public StoreQueue {
public:
  PostgresQueue(PostgresSession& session, const QueueDefinition& definition);
  ~PostgresQueue() override;

  const QueueDefinition& definition() override { return m_definition; }
  const QueueDefinition& latestDefinition() override;
  /// What the last look at the queue found.
  bool exists() override { return !m_gone; }
  std::uint64_t depth() override;
  QueueFigures figures() override;
  void noteUse(bool reads, bool writes) override;
  bool reserve(bool syncpoint) override;
  void unreserve() override;
  Found take(Receiver& receiver, bool syncpoint) override;
  Found takeAt(const Position& position, Receiver& receiver, bool syncpoint) override;
  Found browse(const std::optional<Position>& after, Receiver& receiver) override;
  std::uint32_t arrivals() override { return m_arrivals; }
  void waitForArrival(std::uint32_t seen, std::chrono::steady_clock::time_point until) override;

  std::uint32_t id() const { return m_definition.id; }
  Segments& segments() { return m_segments; }
  /// Learns what has changed; false when the queue has been deleted.
  bool refresh(Server& server);
  bool mayGet(Server& server) { return refresh(server) && !m_definition.getInhibited; }
  /// The connection was lost and made anew. A server that crashed, or a standby in its place, may
  /// have lost what was not waited for: messages that were gone for good are there again.
  void reconnected() {
    m_waitsOn = nullptr;
    m_segments = Segments(m_definition.id);
    m_settledBelow = 0;
  }

  /// Messages of the unit of work that were taken here.
  std::uint64_t taken() const { return m_taken; }
  /// Whether the message that was taken last is there again, or still.
  bool hasLastTaken(Server& server) const;
  bool isQuiet() const { return m_taken == 0 && m_reserved == 0; }
  /// Appends what makes the messages gone that were locked first and got then. Before every look of
  /// the unit of work, and before its commit.
  void deleteGot(Server& server);
  /// The unit of work has ended, and so has what was told of its puts.
  void unitEnded(bool committed);
  /// After a commit: looks at times what is left of the queue's segments, and how large the last
  /// one is.
  void lookAfter(std::uint64_t put, std::uint64_t bytes);

private:
  using Clock = std::chrono::steady_clock;
  struct Seen { ///< a message that is there
    Position position;
    std::string stored;
    std::int64_t now;
  };
  std::optional<std::vector<Seen>> look(const std::optional<Position>& after, int most);
  struct Taking {
    bool syncpoint;
    bool fromStarts;
    bool exactly;
  };
  struct Locked { ///< a message that is the unit of work's, whether it was got by now or not
    Seen seen;
    int place;
    std::string at;
  };
  enum class Took { kOne, kNothing, kStale };
  bool narrow(std::vector<Arm>& arms) const;
  std::size_t howManyAhead() const;
  bool takeLocked(Receiver& receiver);
  void deliverLocked(Receiver& receiver);
  Parameters scanParameters(const std::vector<Arm>& arms, bool fromStarts) const;
  void scanned(Clock::time_point begin);
  Took lockSome(const std::vector<Arm>& arms, bool fromStarts, std::size_t most);
  Took learn(const Reply& reply, const std::vector<Arm>& arms, bool fromStarts);
  void allowTime(Server& server) const;
  std::vector<Reply> ask(Server& server, const std::string& statement, const Parameters& parameters,
                         bool syncpoint);
  Took tryTake(const std::vector<Arm>& arms, const Taking& how, Receiver& receiver);
  Found takeExactly(const Position& position, Receiver& receiver, bool syncpoint);
  Found takeFirst(Receiver& receiver, bool syncpoint);
  Found takeJudged(Receiver& receiver, bool syncpoint);
  void remember(const std::vector<Arm>& arms, std::size_t found, std::int64_t sequence);
  void took(bool syncpoint);
  std::uint64_t counted(Server& server, std::uint64_t limit);
  bool mayHoldMore();
  bool findRoom(bool syncpoint);
  void publish(Server& server, int exponent);
  void publishReserved();
  void settle();
  void freeSegments();
  void tidy();
  void sealIfLarge(std::uint64_t put, std::uint64_t bytes);
  void endWait();
  const Seen* next(const std::optional<Position>& after);
  std::int32_t key() const { return static_cast<std::int32_t>(m_definition.id); }

  PostgresSession& m_session;
  QueueDefinition m_definition;
  Segments m_segments;
  bool m_gone = false;
  bool m_reads = false, m_writes = false; ///< so the others were told

  std::uint64_t m_taken = 0; ///< by the unit of work
  struct {
    Position position;
    int place;
  } m_lastTaken{};
  std::uint64_t m_sinceSettled = 0; ///< messages got
  std::uint64_t m_sinceBounded = 0;
  bool m_boundHeld =
      false; ///< the last scan could have begun later, but for what is being committed
  std::int64_t m_settledBelow = 0; ///< no sequence below will yet come to be seen
  std::int64_t m_returned = -1;
  Clock::time_point m_anewDue{}, m_settleDue{}, m_tidyDue{};
  std::size_t m_tidyAt = 0;  ///< the segment to begin with
  std::vector<Seen> m_ahead; ///< messages that a browse will come to
  std::size_t m_aheadAt = 0;
  std::vector<Locked> m_locked; ///< in queue order
  std::size_t m_lockedAt = 0;   ///< of these were got
  std::size_t m_deleted = 0;    ///< and of these were deleted
  Clock::time_point m_lockedUntil{}, m_lastTook{};
  Clock::time_point m_aheadUntil{};

  std::uint64_t m_reserved = 0;  ///< puts of the unit of work
  std::uint64_t m_published = 0; ///< of these others know about
  int m_publications = 0;
  std::uint64_t m_roomLeft = 0; ///< puts until the depth is looked at again
  Clock::time_point m_roomUntil{};
  std::uint64_t m_putSinceSized = 0, m_bytesSinceSized = 0;

  std::uint32_t m_arrivals = 0;
  Server* m_waitsOn = nullptr;
};

} // namespace bxm
