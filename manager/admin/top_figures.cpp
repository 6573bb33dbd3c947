#include "manager/admin/top_figures.h"

#include "manager/engine/oldest_message.h"
#include "manager/store/catalog.h"

#include <algorithm>

namespace bxm::admin {

namespace {
using Clock = std::chrono::steady_clock;

double rate(std::uint64_t before, std::uint64_t now, std::chrono::duration<double> time) {
  return now > before && time.count() > 0 ? static_cast<double>(now - before) / time.count() : 0;
}
} // namespace

std::string TopRow::remark() const {
  if (isFull()) return "full";
  if (isInhibited) return "shut";
  return growsUnread() ? "unread" : "";
}

std::vector<TopRow> TopFigures::look() {
  const auto session = catalog().connect(m_manager);
  m_name = session->managerName();
  std::vector<TopRow> rows;
  std::map<std::uint32_t, Before> now;
  for (const QueueDefinition& definition : session->listQueues()) {
    const auto queue = session->open(definition);
    const QueueFigures figures = queue->figures();
    const auto known = m_before.find(definition.id);
    Before& mine = now[definition.id];
    mine = {figures.puts, figures.gets, Clock::now(), {}};
    TopRow row;
    if (known != m_before.end()) {
      row.putRate = rate(known->second.puts, mine.puts, mine.at - known->second.at);
      row.getRate = rate(known->second.gets, mine.gets, mine.at - known->second.at);
      mine.depths = std::move(known->second.depths);
    }
    row.name = definition.name;
    row.depth = queue->depth();
    row.maxDepth = static_cast<std::uint64_t>(definition.maxDepth);
    row.uncommitted = figures.uncommitted;
    row.readers = figures.readers;
    row.writers = figures.writers;
    row.isInhibited = definition.putInhibited || definition.getInhibited;
    if (row.depth > 0)
      if (const auto put = oldestMessage(*session, definition))
        row.oldestAge = std::max<std::int64_t>(session->now() - *put, 0);
    mine.depths.push_back(row.depth);
    if (mine.depths.size() > kMostDepths) mine.depths.pop_front();
    row.depths = mine.depths;
    rows.push_back(std::move(row));
  }
  m_before = std::move(now);
  return rows;
}

} // namespace bxm::admin
