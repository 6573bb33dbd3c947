#include "manager/console/figures_json.h"

#include "manager/store/message.h"

namespace bxm::console {

Json rowOf(const std::string& manager, const QueueView& queue) {
  Json row{{"manager", manager}, {"queue", queue.name}};
  row.update(jsonOf(queue));
  row["remark"] = queue.remark();
  return row;
}

Json figuresOf(const std::vector<ManagerView>& managers) {
  Json heads = Json::array(), rows = Json::array();
  for (const ManagerView& manager : managers) {
    heads.push_back({{"manager", manager.name},
                     {"kind", manager.isInDatabase ? "postgresql" : "embedded"},
                     {"default", manager.isDefault},
                     {"reachable", manager.isReachable},
                     {"fault", manager.fault.empty() ? Json() : Json(manager.fault)},
                     {"looked", manager.looked ? Json(utcTime(manager.looked)) : Json()},
                     {"queues_left_out", manager.leftOut}});
    if (manager.queues)
      for (const QueueView& queue : *manager.queues) rows.push_back(rowOf(manager.name, queue));
  }
  return {{"time", utcTime(clockNow())}, {"managers", heads}, {"queues", rows}};
}

} // namespace bxm::console
