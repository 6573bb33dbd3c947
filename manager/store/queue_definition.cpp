#include "manager/store/queue_definition.h"

#include "manager/base/bytes.h"
#include "manager/base/failure.h"

namespace bxm {

namespace {
/// The second has attributes that the first has not; what can be told by the first is, so that
/// older programs can read it.
constexpr std::uint8_t kVersion1 = 1, kVersion2 = 2;
constexpr std::size_t kFixedSize = 1 + 4 + 4 + 3 * 4 + 2 * 8;
constexpr std::uint8_t kPutInhibited = 1, kGetInhibited = 2;

std::uint8_t inhibitionsOf(const QueueDefinition& definition) {
  return static_cast<std::uint8_t>((definition.putInhibited ? kPutInhibited : 0) |
                                   (definition.getInhibited ? kGetInhibited : 0));
}

bool fitsVersion1(const QueueDefinition& definition) {
  return definition.defaultPriority == 0 && inhibitionsOf(definition) == 0;
}
} // namespace

std::string encodeDefinition(const QueueDefinition& definition) {
  std::string out;
  const bool isShort = fitsVersion1(definition);
  appendLittle<std::uint8_t>(out, isShort ? kVersion1 : kVersion2);
  appendLittle<std::uint32_t>(out, definition.id);
  appendLittle<std::uint32_t>(out, definition.slot);
  appendLittle<std::uint32_t>(out, static_cast<std::uint32_t>(definition.maxDepth));
  appendLittle<std::uint32_t>(out, static_cast<std::uint32_t>(definition.maxMessageLength));
  appendLittle<std::uint32_t>(out, static_cast<std::uint32_t>(definition.defaultPersistence));
  appendLittle<std::uint64_t>(out, static_cast<std::uint64_t>(definition.created));
  appendLittle<std::uint64_t>(out, static_cast<std::uint64_t>(definition.altered));
  if (!isShort) {
    appendLittle(out, static_cast<std::uint8_t>(definition.defaultPriority));
    appendLittle(out, inhibitionsOf(definition));
  }
  return out + definition.cluster;
}

QueueDefinition decodeDefinition(std::string_view name, std::string_view bytes) {
  const std::uint8_t version = bytes.empty() ? 0 : static_cast<std::uint8_t>(bytes[0]);
  const std::size_t size = kFixedSize + (version == kVersion2 ? 2 : 0);
  if (bytes.size() < size || (version != kVersion1 && version != kVersion2))
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
  if (version == kVersion2) {
    definition.defaultPriority = takeLittle<std::uint8_t>(p);
    const auto inhibitions = takeLittle<std::uint8_t>(p);
    definition.putInhibited = (inhibitions & kPutInhibited) != 0;
    definition.getInhibited = (inhibitions & kGetInhibited) != 0;
  }
  definition.cluster = bytes.substr(size);
  return definition;
}

} // namespace bxm
