#pragma once

#include "manager/view/json.h"
#include "manager/view/manager_watch.h"

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace bxm::console {

/// What was seen of each queue in the last 15 minutes. A queue that is gone is forgotten. Takes 64
/// MiB at the most, with more than 3,100 queues less than 15 minutes of each. Any number of
/// threads.
class History {
public:
  using Time = std::int64_t; ///< ms since 1970

  /// All queues of a manager at one moment.
  void note(const std::string& manager, Time now, const std::vector<QueueView>& queues);
  void forget(const std::string& manager);

  /// Of one queue, a second a value; null when nothing is known.
  Json of(const std::string& manager, const std::string& queue) const;
  /// The depths of all queues, ten seconds a value.
  Json depths(Time now) const;

private:
  static constexpr std::size_t kMost = 900, kMostMoments = (64 << 20) / 24;

  struct Moment {
    Time at;
    std::uint32_t depth;
    float putRate, getRate;
  };
  static_assert(sizeof(Moment) == 24);
  struct Queue {
    std::uint32_t id = 0;
    std::vector<Moment> ring; ///< where it is full the oldest one is at next
    std::size_t next = 0;
    void add(const Moment& moment, std::size_t most);
    template <typename Visit>
    void visit(Visit visit) const; ///< the oldest first
  };

  mutable std::mutex m_mutex;
  std::map<std::string, std::map<std::string, Queue>> m_managers;
};

} // namespace bxm::console
