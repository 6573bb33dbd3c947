#include "manager/engine/queue_walk.h"

namespace bxm {

namespace {
constexpr std::int64_t kMostClockDifference = 1000; ///< ms
}

bool QueueWalk::next() {
  m_atEnd = m_queue->browse(m_at, *this) != Found::kDelivered;
  if (!m_atEnd) ++m_count;
  return !m_atEnd;
}

void QueueWalk::deliver(const StoredMessage& message) {
  m_at = message.position;
  m_stored.assign(message.stored);
}

bool QueueWalk::mayHaveExpired() const {
  const std::int64_t expiry = messageExpiry(m_stored);
  return expiry != 0 && expiry <= m_session.now() + kMostClockDifference;
}

void passCommon(QueueWalk& one, QueueWalk& other) {
  one.next();
  other.next();
  while (!one.atEnd() && !other.atEnd()) {
    if (one.sameAs(other)) {
      one.next();
      other.next();
    } else if (other.mayHaveExpired()) {
      other.next();
    } else if (one.mayHaveExpired()) {
      one.next();
    } else {
      return;
    }
  }
}

} // namespace bxm
