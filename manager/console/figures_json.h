#pragma once

#include "manager/console/observer.h"

namespace bxm::console {

/// One queue's row.
Json rowOf(const std::string& manager, const QueueView& queue);
/// The figures of all queues.
Json figuresOf(const std::vector<ManagerView>& managers);

} // namespace bxm::console
