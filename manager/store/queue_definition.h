#pragma once

#include "bx/bx.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace bxm {

constexpr BXLONG kMaxDepthLimit = 999'999'999;
constexpr BXLONG kMessageLengthLimit = 104'857'600; ///< the manager's own; 100 MiB
constexpr BXLONG kDefaultMaxDepth = 5'000;
constexpr BXLONG kDefaultMessageLength = 4'194'304;

/// What is laid down about one queue.
struct QueueDefinition {
  std::string name;
  std::string cluster;
  std::uint32_t id = 0;   ///< unique for the life of the manager, never used again
  std::uint32_t slot = 0; ///< a small number, used again after the queue's deletion
  BXLONG maxDepth = kDefaultMaxDepth;
  BXLONG maxMessageLength = kDefaultMessageLength;
  BXLONG defaultPersistence = BXPER_PERSISTENT;
  BXLONG defaultPriority = 0;
  bool putInhibited = false, getInhibited = false;
  std::int64_t created = 0; ///< seconds since 1970, UTC
  std::int64_t altered = 0;
  std::int64_t version = 0; ///< of a store that numbers its alterations
};

/// The stored form, without the name, which is the key it is stored under.
std::string encodeDefinition(const QueueDefinition& definition);

/// Throws Failure (2101) when the bytes are not a definition.
QueueDefinition decodeDefinition(std::string_view name, std::string_view bytes);

} // namespace bxm
