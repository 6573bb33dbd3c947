#include "manager/base/bytes.h"

#include <array>
#include <cstddef>
#include <cstring>

#ifdef __x86_64__
#include <cpuid.h>
#endif

namespace bxm {

namespace {

using Update = std::uint32_t (*)(const unsigned char*, std::size_t, std::uint32_t);

constexpr std::uint32_t kPolynomial = 0x82F63B78; ///< reflected

constexpr auto kTable = [] {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < table.size(); ++i) {
    std::uint32_t crc = i;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (crc & 1 ? kPolynomial : 0);
    table[i] = crc;
  }
  return table;
}();

std::uint32_t byTable(const unsigned char* p, std::size_t size, std::uint32_t crc) {
  for (; size > 0; --size) crc = (crc >> 8) ^ kTable[(crc ^ *p++) & 0xFF];
  return crc;
}

#ifdef __x86_64__
[[gnu::target("sse4.2")]] std::uint32_t byInstruction(const unsigned char* p, std::size_t size,
                                                      std::uint32_t crc) {
  std::uint64_t wide = crc;
  for (; size >= 8; size -= 8, p += 8) {
    std::uint64_t eight;
    std::memcpy(&eight, p, sizeof eight);
    wide = __builtin_ia32_crc32di(wide, eight);
  }
  crc = static_cast<std::uint32_t>(wide);
  for (; size > 0; --size) crc = __builtin_ia32_crc32qi(crc, *p++);
  return crc;
}

// One question: a virtual machine has to trap each, and the compiler's own look at the processor
// asks so many that they take a tenth of a command's time.
bool hasInstruction() {
  unsigned a = 0, b = 0, features = 0, d = 0;
  __cpuid(1, a, b, features, d);
  return (features & bit_SSE4_2) != 0;
}

const Update kUpdate = hasInstruction() ? byInstruction : byTable;
#else
const Update kUpdate = byTable;
#endif

} // namespace

std::uint32_t crc32c(std::string_view bytes, std::uint32_t before) {
  return ~kUpdate(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), ~before);
}

} // namespace bxm
