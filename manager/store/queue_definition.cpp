#include "manager/store/queue_definition.h"

#include "manager/base/bytes.h"
#include "manager/base/failure.h"

namespace bxm {

namespace {
constexpr std::uint8_t kVersion = 1;
constexpr std::size_t kFixedSize = 1 + 4 + 4 + 3 * 4 + 2 * 8;
} // namespace

std::string encodeDefinition(const QueueDefinition& definition) {
  std::string out;
  appendLittle<std::uint8_t>(out, kVersion);
  appendLittle<std::uint32_t>(out, definition.id);
  appendLittle<std::uint32_t>(out, definition.slot);
  appendLittle<std::uint32_t>(out, static_cast<std::uint32_t>(definition.maxDepth));
  appendLittle<std::uint32_t>(out, static_cast<std::uint32_t>(definition.maxMessageLength));
  appendLittle<std::uint32_t>(out, static_cast<std::uint32_t>(definition.defaultPersistence));
  appendLittle<std::uint64_t>(out, static_cast<std::uint64_t>(definition.created));
  appendLittle<std::uint64_t>(out, static_cast<std::uint64_t>(definition.altered));
  return out + definition.cluster;
}

QueueDefinition decodeDefinition(std::string_view name, std::string_view bytes) {
  if (bytes.size() < kFixedSize || static_cast<std::uint8_t>(bytes[0]) != kVersion)
    throw Failure(BXRC_OBJECT_DAMAGED,
                  "the definition of queue " + std::string(name) + " is not readable");
  const char* p = bytes.data() + 1;
  QueueDefinition definition;
  definition.name = name;
  definition.id = takeLittle<std::uint32_t>(p);
  definition.slot = takeLittle<std::uint32_t>(p);
  definition.maxDepth = static_cast<BXLONG>(takeLittle<std::uint32_t>(p));
  definition.maxMessageLength = static_cast<BXLONG>(takeLittle<std::uint32_t>(p));
  definition.defaultPersistence = static_cast<BXLONG>(takeLittle<std::uint32_t>(p));
  definition.created = static_cast<std::int64_t>(takeLittle<std::uint64_t>(p));
  definition.altered = static_cast<std::int64_t>(takeLittle<std::uint64_t>(p));
  definition.cluster = bytes.substr(kFixedSize);
  return definition;
}

} // namespace bxm
