#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace bxm::admin {

/// One queue at one moment, and how it came there.
struct TopRow {
  std::string name;
  std::uint64_t depth = 0, maxDepth = 0, uncommitted = 0, readers = 0, writers = 0;
  double putRate = 0, getRate = 0;       ///< a second, since the look before
  std::optional<std::int64_t> oldestAge; ///< ms
  bool isInhibited = false;
  std::deque<std::uint64_t> depths; ///< of the looks so far, the latest last

  bool isFull() const { return depth >= maxDepth; }
  /// Messages come, and nobody is there who would take them.
  bool growsUnread() const { return readers == 0 && depth > 0 && depth > depths.front(); }
  /// What stands out, in a word; empty where nothing does.
  std::string remark() const;
};

/// Looks at all queues of a manager. It is connected only while it looks, so that the manager can
/// be deleted, or its database change hands, meanwhile.
class TopFigures {
public:
  static constexpr std::size_t kMostDepths = 240;

  explicit TopFigures(std::string manager) : m_manager(std::move(manager)) {}
  /// In the order of the names. Throws Failure.
  std::vector<TopRow> look();
  /// Known after the first look.
  const std::string& managerName() const { return m_name; }

private:
  struct Before {
    std::uint64_t puts, gets;
    std::chrono::steady_clock::time_point at;
    std::deque<std::uint64_t> depths;
  };
  const std::string m_manager;
  std::string m_name;
  std::map<std::uint32_t, Before> m_before; ///< by queue id
};

} // namespace bxm::admin
