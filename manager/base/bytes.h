#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace bxm {

static_assert(std::endian::native == std::endian::little, "stored numbers are little-endian");

template <typename Number>
void appendLittle(std::string& out, Number value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// Reads a number and moves p behind it.
template <typename Number>
Number takeLittle(const char*& p) {
  Number value;
  std::memcpy(&value, p, sizeof value);
  p += sizeof value;
  return value;
}

/// CRC-32C (Castagnoli) of bytes that follow others whose checksum is before.
std::uint32_t crc32c(std::string_view bytes, std::uint32_t before = 0);

} // namespace bxm
