#include "manager/engine/oldest_message.h"

#include <algorithm>

namespace bxm {

namespace {

/// Looks at the first message of each priority.
class Heads : private Receiver {
public:
  std::optional<std::int64_t> oldestIn(StoreQueue& queue) {
    while (queue.browse(m_behind, *this) == Found::kDelivered && m_behind->priority > 0) {
    }
    return m_oldest;
  }

private:
  Verdict judge(const StoredMessage& /*message*/) override { return Verdict::kAccept; }
  void deliver(const StoredMessage& message) override {
    const std::int64_t put = messagePutTime(message.stored);
    m_oldest = std::min(m_oldest.value_or(put), put);
    m_behind = Position{message.position.priority, kBehindAll};
  }

  static constexpr std::uint64_t kBehindAll = INT64_MAX - 1;
  std::optional<Position> m_behind;
  std::optional<std::int64_t> m_oldest;
};

} // namespace

std::optional<std::int64_t> oldestMessage(StoreSession& session, const QueueDefinition& queue) {
  return Heads().oldestIn(*session.open(queue));
}

} // namespace bxm
