#pragma once

#include "manager/store/store.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace bxm {

/// Goes through a queue's messages in order and takes none. It begins before the first one; what
/// has expired, and what others have taken, is passed over.
class QueueWalk : private Receiver {
public:
  /// Must not outlive the session.
  QueueWalk(StoreSession& session, const QueueDefinition& definition)
      : m_session(session), m_queue(session.open(definition)) {}

  /// False when there was no further message.
  bool next();
  bool atEnd() const { return m_atEnd; }
  int priority() const { return m_at->priority; }
  /// The message as the store holds it; until next.
  const std::string& stored() const { return m_stored; }
  /// How many are before the present one; at the end: how many there were.
  std::uint64_t passed() const { return m_count - (m_atEnd ? 0 : 1); }

  bool sameAs(const QueueWalk& other) const {
    return priority() == other.priority() && m_stored == other.m_stored;
  }
  /// Whether at least one of two stores, by their own clocks, may have dropped the message by now.
  bool mayHaveExpired(const QueueWalk& other) const;
  /// At the end: there are messages that were not seen, since somebody has taken or not yet
  /// committed them.
  bool missedSome() const { return m_queue->depth() > m_count; }

private:
  Verdict judge(const StoredMessage& /*message*/) override { return Verdict::kAccept; }
  void deliver(const StoredMessage& message) override;

  StoreSession& m_session;
  std::shared_ptr<StoreQueue> m_queue;
  std::optional<Position> m_at;
  std::string m_stored;
  std::uint64_t m_count = 0;
  bool m_atEnd = false;
};

/// Steps behind what both queues have in common from their beginnings on, leaving out what expired
/// meanwhile on one side: each is then at its first message that the other lacks, or at its end.
void passCommon(QueueWalk& one, QueueWalk& other);

} // namespace bxm
