#include "manager/store/log/format.h"

#include "bx/bx.h"
#include "manager/base/bytes.h"
#include "manager/base/failure.h"

#include <cstring>

namespace bxm {

namespace {

/// The checksum of a structure's fields before its own.
template <typename Structure>
std::uint32_t crcBefore(const Structure& s, const std::uint32_t& field) {
  const char* const begin = reinterpret_cast<const char*>(&s);
  return crc32c({begin, static_cast<std::size_t>(reinterpret_cast<const char*>(&field) - begin)});
}

std::uint32_t headerCrc(const RecordHeader& header) {
  constexpr std::size_t kFirst = offsetof(RecordHeader, length);
  return crc32c({reinterpret_cast<const char*>(&header) + kFirst, sizeof header - kFirst});
}

template <typename Structure>
std::string bytesOf(const Structure& s) {
  return {reinterpret_cast<const char*>(&s), sizeof s};
}

} // namespace

// ---- The file's page ----------------------------------------------------------------------------

std::string encodeFileHeader(std::uint32_t file, std::uint64_t storeId, Generation generation) {
  FileHeader header;
  header.file = file;
  header.storeId = storeId;
  header.generation = generation;
  header.crc = crcBefore(header, header.crc);
  return bytesOf(header);
}

std::optional<FileHeader> decodeFileHeader(std::string_view bytes, std::uint32_t file,
                                           std::uint64_t storeId) {
  FileHeader header;
  const FileHeader known;
  if (bytes.size() < sizeof header) return std::nullopt;
  std::memcpy(&header, bytes.data(), sizeof header);
  const bool right = std::memcmp(header.magic, known.magic, sizeof known.magic) == 0 &&
                     header.format == kFormat && header.file == file && header.storeId == storeId &&
                     header.crc == crcBefore(header, header.crc);
  return right ? std::optional(header) : std::nullopt;
}

Seal makeSeal(Generation generation, std::uint32_t end) {
  Seal seal{generation, end, 0};
  seal.crc = crcBefore(seal, seal.crc);
  return seal;
}

std::optional<Seal> decodeSeal(std::string_view bytes) {
  Seal seal;
  if (bytes.size() < sizeof seal) return std::nullopt;
  std::memcpy(&seal, bytes.data(), sizeof seal);
  return seal.crc == crcBefore(seal, seal.crc) ? std::optional(seal) : std::nullopt;
}

// ---- Takes --------------------------------------------------------------------------------------

std::size_t takesSize(const TakeGroup& group) { return padded8(16 + 4 * group.offsets.size()); }

void appendTakes(std::string& out, const TakeGroup& group) {
  appendLittle(out, group.file | static_cast<std::uint32_t>(group.kind) << 24);
  appendLittle(out, static_cast<std::uint32_t>(group.offsets.size()));
  appendLittle(out, group.generation);
  for (const std::uint32_t offset : group.offsets) appendLittle(out, offset / 8);
  out.resize(padded8(out.size()));
}

const char* RecordView::readTakes(const char* p, TakeGroup& group) {
  const auto file = takeLittle<std::uint32_t>(p);
  group.file = file & 0xFFFFFF;
  group.kind = static_cast<TakeKind>(file >> 24);
  const auto count = takeLittle<std::uint32_t>(p);
  group.generation = takeLittle<Generation>(p);
  group.offsets.resize(count);
  for (std::uint32_t& offset : group.offsets) offset = takeLittle<std::uint32_t>(p) * 8;
  return p + (count % 2 ? 4 : 0);
}

// ---- Records ------------------------------------------------------------------------------------

void sealRecord(RecordHeader& header, std::uint32_t contents) {
  header.contents = contents;
  header.crc = headerCrc(header);
}

bool RecordView::isHeader(const RecordHeader& header, Place place, std::uint64_t storeId,
                          Generation generation) {
  return header.magic == RecordHeader::kMagic && header.place == place.packed() &&
         header.storeId == storeId && (generation == 0 || header.generation == generation) &&
         header.crc == headerCrc(header) && header.length >= sizeof header &&
         header.length % 8 == 0 && header.takesSize % 8 == 0 &&
         header.takesSize <= header.length - sizeof header;
}

std::optional<RecordView> RecordView::at(std::string_view bytes, Place place, std::uint64_t storeId,
                                         Generation generation) {
  RecordHeader header;
  if (bytes.size() < sizeof header) return std::nullopt;
  std::memcpy(&header, bytes.data(), sizeof header);
  if (!isHeader(header, place, storeId, generation) || header.length > bytes.size())
    return std::nullopt;
  return RecordView(header, bytes.substr(0, header.length));
}

bool RecordView::isSound() const {
  const char* p = m_bytes.data() + sizeof(RecordHeader);
  const char* const end = m_bytes.data() + m_bytes.size();
  std::uint32_t crc = crc32c({p, m_header.takesSize});
  for (const char* const takesEnd = p + m_header.takesSize; p < takesEnd;) {
    std::uint32_t count = 0;
    if (takesEnd - p < 16) return false;
    std::memcpy(&count, p + 4, sizeof count);
    const std::size_t size = padded8(16 + std::size_t{4} * count);
    if (size > static_cast<std::size_t>(takesEnd - p)) return false;
    p += size;
  }
  while (p < end) {
    if (end - p < static_cast<std::ptrdiff_t>(sizeof(ItemHeader))) return false;
    const ItemHeader item = itemHeaderAt(p);
    if (itemSize(item.size) > static_cast<std::size_t>(end - p) || item.priority > BXPRI_MAXIMUM)
      return false;
    crc = crc32c({p, sizeof item}, crc);
    p += itemSize(item.size);
  }
  return crc == m_header.contents;
}

bool RecordView::isWhole() const {
  if (!isSound()) return false;
  bool whole = true;
  forEachMessage([&whole](Place, const ItemHeader& item, std::string_view payload) {
    whole = whole && crc32c(payload) == item.crc;
  });
  return whole;
}

// ---- Items --------------------------------------------------------------------------------------

CopyOrigin originOf(std::string_view payload) {
  CopyOrigin origin;
  std::memcpy(&origin, payload.data(), sizeof origin);
  return origin;
}

OrderKey orderOf(const RecordHeader& header, Place place, const ItemHeader& item,
                 std::string_view payload) {
  if (!(item.flags & kItemCopied) || payload.size() < sizeof(CopyOrigin))
    return {header.number, rankOf(header, place)};
  const CopyOrigin origin = originOf(payload);
  return {origin.number, origin.rank};
}

std::string_view storedIn(const ItemHeader& item, std::string_view payload) {
  if (!(item.flags & kItemCopied)) return payload;
  if (payload.size() < sizeof(CopyOrigin))
    throw Failure(BXRC_OBJECT_DAMAGED, "a message record is cut short");
  return payload.substr(sizeof(CopyOrigin));
}

} // namespace bxm
