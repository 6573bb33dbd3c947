#pragma once

#include "manager/store/log/log_store.h"

#include <set>

namespace bxm {

/// Enters the messages of a unit of work that is on the disk into the index. The connection's slot
/// says how far it has come, so that whoever finds the process dead goes on behind that.
class Publication {
public:
  Publication(LogStore& store, ConnectionSlot& connection)
      : m_store(store), m_connection(connection), m_entered(connection.published.load()) {}

  /// Makes sure that add needs no memory for messages of a queue.
  void expect(std::uint32_t queue) { shareOf(queue); }
  /// The messages in their order, from the first on; those that were entered are passed over.
  void add(Place place, const ItemHeader& item, std::string_view payload);
  /// Wakes who waits for them.
  void announce();

private:
  QueueShare* shareOf(std::uint32_t queue);
  bool wasTried(const QueueShare& share, Place place, int priority) const;

  LogStore& m_store;
  ConnectionSlot& m_connection;
  std::uint64_t m_entered; ///< when this began
  std::uint64_t m_seen = 0;
  std::map<std::uint32_t, std::shared_ptr<QueueShare>> m_shares;
  std::uint32_t m_latestQueue = 0;
  QueueShare* m_latest = nullptr;
};

} // namespace bxm
