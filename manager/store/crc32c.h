#pragma once

#include <cstdint>
#include <string_view>

namespace bxm {

/// CRC-32C (Castagnoli) of bytes that follow others whose checksum is before.
std::uint32_t crc32c(std::string_view bytes, std::uint32_t before = 0);

} // namespace bxm
