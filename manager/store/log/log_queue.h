#pragma once

#include "manager/store/log/log_reader.h"
#include "manager/store/log/log_store.h"
#include "manager/store/store.h"

#include <memory>
#include <vector>

namespace bxm {

/// One queue as one session uses it.
class LogQueue : public StoreQueue {
public:
  /// Throws Failure 2102.
  LogQueue(LogSession& session, const QueueDefinition& definition);
  ~LogQueue() override;

  const QueueDefinition& definition() override;
  bool exists() override { return m_share->exists(); }
  std::uint64_t depth() override;
  QueueFigures figures() override;
  void noteUse(bool reads, bool writes) override;
  bool reserve(bool syncpoint) override;
  void unreserve() override;
  Found take(Receiver& receiver, bool syncpoint) override;
  Found takeAt(const Position& position, Receiver& receiver, bool syncpoint) override;
  Found browse(const std::optional<Position>& after, Receiver& receiver) override;
  std::uint32_t arrivals() override { return m_share->slot.arrivals.load(); }
  void waitForArrival(std::uint32_t seen, std::chrono::steady_clock::time_point until) override;

  const std::shared_ptr<QueueShare>& share() const { return m_share; }
  AccessSlot& access() const { return m_access; }

  /// What the unit of work has taken.
  const std::vector<std::uint64_t>& taken() const { return m_taken; }
  /// Puts that belong to no commit yet.
  std::uint64_t pending() const { return m_access.puts.load() - m_access.committed.load(); }
  bool isQuiet() const { return m_taken.empty() && pending() == 0; }
  /// Ends it: taken messages are consumed, gone, or available again.
  void consumeTaken();
  void markTakenGone();
  void releaseTaken();
  /// The same of the message that was taken last: gone, or available again.
  void endLastTaken(bool gone);
  /// The slot stays as that of a dead connection, for recovery to find.
  void abandon() { m_abandoned = true; }

private:
  using Word = QueueIndex::Word;
  /// One entry on the way of a scan, as it was when the scan came by.
  struct Candidate {
    Position position;
    Word* entry;
    std::uint64_t word;
    StoredMessage message;
  };
  enum class Look { kMessage, kUnavailable, kChanged };
  Look look(Candidate& candidate);
  enum class Step { kGoOn, kAvailable, kDone, kAgain };
  template <typename Visit>
  Found scan(const std::optional<Position>& after, Visit visit);
  Step tryTake(Candidate& candidate, Receiver& receiver, bool syncpoint, Found& found);
  Found logged(Found found);
  bool claim(const Candidate& candidate, bool syncpoint);
  bool hasExpired(const StoredMessage& message) const;
  void consumeAlone(const Position& position);
  void dropExpired();
  std::uint64_t counted();
  std::uint64_t gone() const;
  void lookAfterOthers();
  bool recoverOthers();

  LogSession& m_session;
  QueueDefinition m_definition;
  const std::shared_ptr<QueueShare> m_share;
  const std::uint32_t m_accessSlot;
  AccessSlot& m_access;
  std::vector<std::uint64_t> m_taken;        ///< packed positions
  std::vector<const AccessSlot*> m_accesses; ///< of all connections that use or have used the queue
  std::uint32_t m_accessesSeen = 0, m_alterationsSeen = 0;
  bool m_abandoned = false;
};

} // namespace bxm
