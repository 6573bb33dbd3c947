#pragma once

#include "manager/store/store.h"

#include <cstdint>
#include <optional>

namespace bxm {

/// When the oldest message at the head of one of a queue's priorities was put, ms since 1970;
/// nullopt when there is none that could be got.
std::optional<std::int64_t> oldestMessage(StoreSession& session, const QueueDefinition& queue);

} // namespace bxm
