#include "manager/console/metrics.h"

#include <fmt/format.h>

namespace bxm::console {

namespace {

std::string quoted(const std::string& value) {
  std::string text;
  for (const char c : value) {
    if (c == '\\' || c == '"') text += '\\';
    text += c == '\n' ? std::string("\\n") : std::string(1, c);
  }
  return '"' + text + '"';
}

struct ManagerMetric {
  const char *name, *help;
  double (*value)(const ManagerView&);
};
constexpr ManagerMetric kOfManagers[] = {
    {"bxm_manager_up", "Whether the queue manager can be reached",
     [](const ManagerView& manager) { return manager.isReachable ? 1.0 : 0.0; }},
    {"bxm_manager_queues_left_out", "Queues that are too many to be looked at",
     [](const ManagerView& manager) { return static_cast<double>(manager.leftOut); }},
    {"bxm_console_look_duration_seconds", "How long the latest look at the manager took",
     [](const ManagerView& manager) { return manager.lookSeconds; }},
};

struct QueueMetric {
  const char *name, *help, *type;
  double (*value)(const QueueView&);
};
constexpr QueueMetric kOfQueues[] = {
    {"bxm_queue_depth_messages", "Messages on the queue", "gauge",
     [](const QueueView& queue) { return static_cast<double>(queue.depth); }},
    {"bxm_queue_max_depth_messages", "How many messages the queue takes", "gauge",
     [](const QueueView& queue) { return static_cast<double>(queue.maxDepth); }},
    {"bxm_queue_oldest_message_age_seconds", "Age of the oldest message, 0 without one", "gauge",
     [](const QueueView& queue) {
       return static_cast<double>(queue.oldestAge.value_or(0)) / 1000;
     }},
    {"bxm_queue_readers", "Connections that get from the queue", "gauge",
     [](const QueueView& queue) { return static_cast<double>(queue.readers); }},
    {"bxm_queue_writers", "Connections that put to the queue", "gauge",
     [](const QueueView& queue) { return static_cast<double>(queue.writers); }},
    {"bxm_queue_uncommitted_messages", "Messages that were put and not yet committed", "gauge",
     [](const QueueView& queue) { return static_cast<double>(queue.uncommitted); }},
    {"bxm_queue_puts_total", "Messages that were put", "counter",
     [](const QueueView& queue) { return static_cast<double>(queue.puts); }},
    {"bxm_queue_gets_total", "Messages that were got, or expired", "counter",
     [](const QueueView& queue) { return static_cast<double>(queue.gets); }},
};

std::string headOf(const char* name, const char* help, const char* type) {
  return fmt::format("# HELP {0} {1}.\n# TYPE {0} {2}\n", name, help, type);
}

} // namespace

std::string metricsOf(const std::vector<ManagerView>& managers, std::size_t streams) {
  std::string text;
  for (const ManagerMetric& metric : kOfManagers) {
    text += headOf(metric.name, metric.help, "gauge");
    for (const ManagerView& manager : managers)
      text += fmt::format("{}{{manager={}}} {}\n", metric.name, quoted(manager.name),
                          metric.value(manager));
  }
  for (const QueueMetric& metric : kOfQueues) {
    text += headOf(metric.name, metric.help, metric.type);
    for (const ManagerView& manager : managers)
      if (manager.queues)
        for (const QueueView& queue : *manager.queues)
          text += fmt::format("{}{{manager={},queue={}}} {}\n", metric.name, quoted(manager.name),
                              quoted(queue.name), metric.value(queue));
  }
  text += headOf("bxm_console_streams", "Open event streams", "gauge");
  return text + fmt::format("bxm_console_streams {}\n", streams);
}

} // namespace bxm::console
