#pragma once

#include "manager/store/log/log_store.h"
#include "manager/store/log/log_writer.h"

namespace bxm {

/// Gives the space of log files back of which nothing is needed any more: their messages are gone,
/// and the messages that they say were taken are in files that have been freed, on the disk. A few
/// old messages that keep many files are moved to writer's. Throws Failure; what could not be done
/// is done the next time.
void reclaim(LogStore& store, LogWriter& writer, std::uint32_t connection);

} // namespace bxm
