#pragma once

#include "bx/bx.h"

#include <cstdint>
#include <string>
#include <vector>

/// What the operator's programs do with queues. An empty manager is the default one. Everything
/// throws a Failure whose text is made to be shown.
namespace bxm {

struct QueueInfo {
  std::string name;
  BXLONG maxDepth = 0;
  BXLONG maxMessageLength = 0;
  std::uint64_t depth = 0;
};

/// Of the info the name and the two limits are used; 0 leaves a limit at its default.
void createLocalQueue(const std::string& manager, const QueueInfo& queue);
/// Deletes a queue with all that is on it.
void deleteLocalQueue(const std::string& manager, const std::string& name);
std::vector<QueueInfo> listLocalQueues(const std::string& manager);

} // namespace bxm
