#include "engine/crc32c.h"

#include <array>

#include "engine/format.h"

namespace zvrdb::engine {
namespace {

constexpr std::uint32_t polynomial = 0x82F63B78u;
constexpr std::size_t at_once = 8;

using crc_tables = std::array<std::array<std::uint32_t, 256>, at_once>;

// Table k holds what a byte does to the value k bytes later: eight bytes are taken in one
// step.
constexpr crc_tables make_tables() {
  crc_tables t{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t v = i;
    for (int bit = 0; bit < 8; ++bit) v = (v >> 1) ^ ((v & 1) != 0 ? polynomial : 0);
    t[0][i] = v;
  }
  for (std::size_t k = 1; k < at_once; ++k)
    for (std::size_t i = 0; i < 256; ++i) t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF];
  return t;
}
constexpr crc_tables tables = make_tables();

}  // namespace

std::uint32_t crc32c(std::uint32_t crc, const void* bytes, std::size_t n) {
  const auto* p = static_cast<const std::uint8_t*>(bytes);
  std::uint32_t v = ~crc;
  for (; n >= at_once; n -= at_once, p += at_once) {
    const std::uint32_t low = v ^ load_le32(p);
    const std::uint32_t high = load_le32(p + 4);
    v = tables[7][low & 0xFF] ^ tables[6][(low >> 8) & 0xFF] ^ tables[5][(low >> 16) & 0xFF] ^ tables[4][low >> 24] ^
        tables[3][high & 0xFF] ^ tables[2][(high >> 8) & 0xFF] ^ tables[1][(high >> 16) & 0xFF] ^ tables[0][high >> 24];
  }
  for (; n > 0; --n, ++p) v = (v >> 8) ^ tables[0][(v ^ *p) & 0xFF];
  return ~v;
}

}  // namespace zvrdb::engine
