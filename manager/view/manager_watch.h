#pragma once

#include "manager/store/store.h"
#include "manager/view/json.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace bxm {

/// One queue at one moment, and how it came there.
struct QueueView {
  std::string name;
  std::uint32_t id = 0; ///< never used again, also where a queue of the same name is made
  std::uint64_t depth = 0, maxDepth = 0, uncommitted = 0, readers = 0, writers = 0;
  std::uint64_t puts = 0, gets = 0;      ///< since the manager counts
  double putRate = 0, getRate = 0;       ///< a second, since the look before
  std::optional<std::int64_t> oldestPut; ///< ms since 1970
  std::optional<std::int64_t> oldestAge; ///< ms
  bool isInhibited = false;
  bool growsUnread = false;         ///< messages came, and nobody is or was there to take them
  std::deque<std::uint64_t> depths; ///< of the looks so far, the latest last

  bool isFull() const { return depth >= maxDepth; }
  /// What stands out, in a word; empty where nothing does.
  std::string remark() const;
};

/// What is told of a queue in JSON, after its name.
Json jsonOf(const QueueView& view);

/// One queue now, without what only a second look can tell.
QueueView viewOf(StoreSession& session, const QueueDefinition& definition);

/// Looks at all queues of a manager. It is connected only while it looks, so that the manager can
/// be deleted, or its database change hands, meanwhile.
class ManagerWatch {
public:
  static constexpr std::size_t kMostDepths = 240;

  static constexpr std::size_t kAllQueues = std::numeric_limits<std::size_t>::max();

  /// Looks at the first so many queues, and remembers so many looks at each.
  explicit ManagerWatch(std::string manager, std::size_t mostQueues = kAllQueues,
                        std::size_t mostDepths = kMostDepths)
      : m_manager(std::move(manager)), m_mostQueues(mostQueues), m_mostDepths(mostDepths) {}
  /// In the order of the names. Throws Failure.
  std::vector<QueueView> look();
  /// How many queues the latest look left out.
  std::size_t leftOut() const { return m_leftOut; }
  /// Known after the first look.
  const std::string& managerName() const { return m_name; }

private:
  struct Moment {
    std::chrono::steady_clock::time_point at;
    std::uint64_t depth, puts, gets;
  };
  using Moments = std::deque<Moment>; ///< of one queue, the latest last

  void compare(QueueView& view, Moments& moments) const;

  const std::string m_manager;
  const std::size_t m_mostQueues, m_mostDepths;
  std::string m_name;
  std::size_t m_leftOut = 0;
  std::map<std::uint32_t, Moments> m_seen; ///< by queue id
};

} // namespace bxm
