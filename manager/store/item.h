#pragma once

#include "manager/store/crc32c.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace bxm {

/// A message as a batch and a log hold it: this header, the record (see record.h), and zero bytes
/// up to a multiple of eight. Numbers are little-endian.
struct ItemHeader {
  std::uint32_t size = 0; ///< of what follows, without the padding
  std::uint32_t queue = 0;
  std::uint32_t crc = 0; ///< CRC-32C of what follows, without the padding
  std::uint8_t priority = 0;
  std::uint8_t flags = 0; ///< kItem*
  std::uint16_t unused = 0;
};
static_assert(sizeof(ItemHeader) == 16);

constexpr std::uint8_t kItemExpires = 1;
constexpr std::uint8_t kItemCopied = 2; ///< the log's: the record stands behind its origin

constexpr std::size_t padded8(std::size_t size) { return (size + 7) & ~std::size_t{7}; }
constexpr std::size_t itemSize(std::size_t size) { return sizeof(ItemHeader) + padded8(size); }

/// The header at p; 16 bytes must be there.
inline ItemHeader itemHeaderAt(const char* p) {
  ItemHeader header;
  std::memcpy(&header, p, sizeof header);
  return header;
}

/// Calls visit(header, payload) for each of the whole items that a run of bytes holds.
template <typename Visit>
void forEachItem(std::string_view run, Visit visit) {
  for (const char* p = run.data(); p < run.data() + run.size();) {
    const ItemHeader header = itemHeaderAt(p);
    visit(header, std::string_view(p + sizeof header, header.size));
    p += itemSize(header.size);
  }
}

} // namespace bxm
