#include "manager/view/manager_watch.h"

#include "manager/engine/oldest_message.h"
#include "manager/store/catalog.h"

#include <algorithm>

namespace bxm {

namespace {
double rate(std::uint64_t before, std::uint64_t now, std::chrono::duration<double> time) {
  return now > before && time.count() > 0 ? static_cast<double>(now - before) / time.count() : 0;
}
} // namespace

std::string QueueView::remark() const {
  if (isFull()) return "full";
  if (isInhibited) return "shut";
  return growsUnread ? "unread" : "";
}

Json jsonOf(const QueueView& view) {
  return {{"depth", view.depth},
          {"max_depth", view.maxDepth},
          {"puts_per_second", tenths(view.putRate)},
          {"gets_per_second", tenths(view.getRate)},
          {"readers", view.readers},
          {"writers", view.writers},
          {"uncommitted", view.uncommitted},
          {"oldest_age_ms", view.oldestAge ? Json(*view.oldestAge) : Json()}};
}

QueueView viewOf(StoreSession& session, const QueueDefinition& definition) {
  const auto queue = session.open(definition);
  const QueueFigures figures = queue->figures();
  QueueView view;
  view.name = definition.name;
  view.id = definition.id;
  view.depth = queue->depth();
  view.maxDepth = static_cast<std::uint64_t>(definition.maxDepth);
  view.uncommitted = figures.uncommitted;
  view.readers = figures.readers;
  view.writers = figures.writers;
  view.puts = figures.puts;
  view.gets = figures.gets;
  view.isInhibited = definition.putInhibited || definition.getInhibited;
  if (view.depth > 0) view.oldestPut = oldestMessage(session, definition);
  if (view.oldestPut) view.oldestAge = std::max<std::int64_t>(session.now() - *view.oldestPut, 0);
  return view;
}

std::vector<QueueView> ManagerWatch::look() {
  // By its name from then on: without one a manager that is gone would be made again.
  const auto session = catalog().connect(m_name.empty() ? m_manager : m_name);
  m_name = session->managerName();
  std::vector<QueueView> views;
  std::map<std::uint32_t, Moments> seen;
  const auto definitions = session->listQueues();
  m_leftOut = definitions.size() - std::min(definitions.size(), m_mostQueues);
  for (const QueueDefinition& definition : definitions) {
    if (views.size() == m_mostQueues) break;
    QueueView& view = views.emplace_back(viewOf(*session, definition));
    compare(view, seen[definition.id] = std::move(m_seen[definition.id]));
  }
  m_seen = std::move(seen);
  return views;
}

/// With the looks before.
void ManagerWatch::compare(QueueView& view, Moments& moments) const {
  const Moment now{std::chrono::steady_clock::now(), view.depth, view.puts, view.gets};
  if (!moments.empty()) {
    const Moment& before = moments.back();
    view.putRate = rate(before.puts, now.puts, now.at - before.at);
    view.getRate = rate(before.gets, now.gets, now.at - before.at);
  }
  moments.push_back(now);
  if (moments.size() > m_mostDepths) moments.pop_front();
  const Moment& first = moments.front();
  view.growsUnread = view.readers == 0 && view.gets <= first.gets && view.depth > first.depth;
  for (const Moment& moment : moments) view.depths.push_back(moment.depth);
}

} // namespace bxm
