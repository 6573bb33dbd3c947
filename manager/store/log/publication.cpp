#include "manager/store/log/publication.h"

#include "manager/base/kill_point.h"
#include "manager/store/message.h"

namespace bxm {

QueueShare* Publication::shareOf(std::uint32_t queue) {
  if (queue == m_latestQueue) return m_latest;
  auto found = m_shares.find(queue);
  if (found == m_shares.end()) found = m_shares.emplace(queue, m_store.share(queue)).first;
  m_latestQueue = queue;
  return m_latest = found->second.get();
}

/// Who died between entering a message and saying so has named the entry before.
bool Publication::wasTried(const QueueShare& share, Place place, int priority) const {
  const std::uint64_t attempt = m_connection.attempt.load();
  if (attempt == 0 || attempt > share.index.readyOf(priority)) return false;
  const std::uint64_t word = share.index.entry(priority, attempt - 1).load();
  return Entry::stateOf(word) != Entry::kEmpty && Entry::placeOf(word) == place;
}

void Publication::add(Place place, const ItemHeader& item, std::string_view payload) {
  const std::uint64_t number = m_seen++;
  if (number < m_entered) return;
  QueueShare* const share = shareOf(item.queue);
  const bool expires = (item.flags & kItemExpires) != 0;
  if (!share || !share->exists()) {
    FileSlot& file = m_store.runtime().file(place.file);
    dropLive(file, file.generation.load(), 1);
  } else if (number > m_entered || !wasTried(*share, place, item.priority)) {
    if (expires) {
      std::int64_t next = share->slot.nextExpiry.load();
      const std::int64_t expiry = messageExpiry(storedIn(item, payload));
      while (expiry < next && !share->slot.nextExpiry.compare_exchange_weak(next, expiry)) {
      }
    }
    share->index.enter(item.priority, Entry::available(place, expires), &m_connection.attempt);
  }
  BXM_KILL_POINT("publish-entered");
  m_connection.published.store(number + 1, std::memory_order_release);
}

void Publication::announce() {
  for (const auto& [id, share] : m_shares)
    if (share) announceArrival(share->slot);
}

} // namespace bxm
