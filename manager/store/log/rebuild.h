#pragma once

#include "manager/store/log/log_files.h"
#include "manager/store/log/queue_table.h"

namespace bxm {

/// Sets the runtime and the index of a manager up from what is on the disk, after a boot. Says in a
/// line on standard error what of it is damaged. Nobody else uses the manager meanwhile. Throws
/// Failure.
void rebuild(LogFiles& files, QueueTable& queues);

} // namespace bxm
