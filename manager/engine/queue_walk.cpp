#include "manager/engine/queue_walk.h"

#include <algorithm>

namespace bxm {

namespace {
constexpr std::int64_t kClockTolerance = 1000; ///< ms that a clock may have drifted meanwhile
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

bool QueueWalk::mayHaveExpired(const QueueWalk& other) const {
  const std::int64_t expiry = messageExpiry(m_stored);
  if (expiry == 0) return false;
  return expiry <= std::max(m_session.now(), other.m_session.now()) + kClockTolerance;
}

void passCommon(QueueWalk& one, QueueWalk& other) {
  one.next();
  other.next();
  while (!one.atEnd() && !other.atEnd()) {
    if (one.sameAs(other)) {
      one.next();
      other.next();
    } else if (other.mayHaveExpired(one)) {
      other.next();
    } else if (one.mayHaveExpired(other)) {
      one.next();
    } else {
      return;
    }
  }
}

} // namespace bxm
