#include "manager/console/history.h"

#include <algorithm>
#include <cmath>

namespace bxm::console {

namespace {
constexpr History::Time kLife = 900'000, kStep = 1000, kLongStep = 10'000;
constexpr History::Time kTooFar = 750; ///< from the middle of its second
} // namespace

void History::Queue::add(const Moment& moment, std::size_t most) {
  if (ring.size() > most) { // there are more queues now
    std::rotate(ring.begin(), ring.begin() + static_cast<std::ptrdiff_t>(next), ring.end());
    ring.erase(ring.begin(), ring.end() - static_cast<std::ptrdiff_t>(most));
    ring.shrink_to_fit();
    next = 0;
  }
  if (ring.size() < most && next == 0) {
    ring.push_back(moment);
    return;
  }
  ring[next] = moment;
  next = (next + 1) % ring.size();
}

template <typename Visit>
void History::Queue::visit(Visit visit) const {
  for (std::size_t i = 0; i < ring.size(); ++i) visit(ring[(next + i) % ring.size()]);
}

void History::note(const std::string& manager, Time now, const std::vector<QueueView>& views) {
  const std::lock_guard lock(m_mutex);
  std::size_t count = views.size();
  for (const auto& [name, queues] : m_managers)
    if (name != manager) count += queues.size();
  const std::size_t most = std::min(kMost, kMostMoments / std::max<std::size_t>(count, 1));
  auto& before = m_managers[manager];
  std::map<std::string, Queue> queues;
  for (const QueueView& view : views) {
    Queue& queue = queues[view.name];
    if (const auto found = before.find(view.name);
        found != before.end() && found->second.id == view.id)
      queue = std::move(found->second);
    queue.id = view.id;
    queue.add({now, static_cast<std::uint32_t>(view.depth), static_cast<float>(view.putRate),
               static_cast<float>(view.getRate)},
              most);
  }
  before = std::move(queues);
}

void History::forget(const std::string& manager) {
  const std::lock_guard lock(m_mutex);
  m_managers.erase(manager);
}

/// Each value is the look nearest to its moment; the moments count back from the latest look.
Json History::of(const std::string& manager, const std::string& name) const {
  const std::lock_guard lock(m_mutex);
  const auto queues = m_managers.find(manager);
  if (queues == m_managers.end()) return nullptr;
  const auto found = queues->second.find(name);
  if (found == queues->second.end() || found->second.ring.empty()) return nullptr;
  Time latest = 0, oldest = 0;
  found->second.visit([&](const Moment& moment) { latest = std::max(latest, moment.at); });
  oldest = latest;
  found->second.visit([&](const Moment& moment) {
    if (moment.at > latest - kLife) oldest = std::min(oldest, moment.at);
  });
  const auto count = static_cast<std::size_t>((latest - oldest + kStep / 2) / kStep) + 1;
  const std::size_t values = std::min(count, kMost);
  std::vector<const Moment*> nearest(values, nullptr);
  const auto take = [&](std::size_t slot, const Moment& moment) {
    if (slot >= values) return;
    const Time middle = latest - static_cast<Time>(slot) * kStep;
    const auto distance = [&](const Moment& m) { return std::abs(m.at - middle); };
    const Moment*& best = nearest[values - 1 - slot];
    if (distance(moment) <= kTooFar && (!best || distance(moment) < distance(*best)))
      best = &moment;
  };
  found->second.visit([&](const Moment& moment) {
    const auto slot = static_cast<std::size_t>((latest - moment.at) / kStep);
    take(slot, moment);
    take(slot + 1, moment);
  });
  Json depths = Json::array(), puts = Json::array(), gets = Json::array();
  for (const Moment* moment : nearest) {
    depths.push_back(moment ? Json(moment->depth) : Json());
    puts.push_back(moment ? Json(tenths(moment->putRate)) : Json());
    gets.push_back(moment ? Json(tenths(moment->getRate)) : Json());
  }
  return {{"step_ms", kStep},
          {"latest", utcTime(latest)},
          {"depth", std::move(depths)},
          {"puts_per_second", std::move(puts)},
          {"gets_per_second", std::move(gets)}};
}

Json History::depths(Time now) const {
  constexpr std::size_t kValues = kLife / kLongStep;
  const Time last = now / kLongStep;
  const std::lock_guard lock(m_mutex);
  Json all = Json::array();
  for (const auto& [manager, queues] : m_managers)
    for (const auto& [name, queue] : queues) {
      Json values = Json::array();
      for (std::size_t i = 0; i < kValues; ++i) values.push_back(nullptr);
      std::size_t first = kValues;
      queue.visit([&](const Moment& moment) {
        const Time back = last - moment.at / kLongStep;
        if (back < 0 || back >= static_cast<Time>(kValues)) return;
        const std::size_t at = kValues - 1 - static_cast<std::size_t>(back);
        values[at] = moment.depth;
        first = std::min(first, at);
      });
      values.erase(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(first));
      all.push_back({{"manager", manager}, {"queue", name}, {"depth", std::move(values)}});
    }
  return {{"step_ms", kLongStep}, {"latest", utcTime(now)}, {"queues", std::move(all)}};
}

} // namespace bxm::console
