#include "engine/crc32c.h"

#if defined(__x86_64__)
#include <nmmintrin.h>
#endif

#include <array>
#include <cstring>

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

std::uint32_t by_tables(std::uint32_t v, const std::uint8_t* p, std::size_t n) {
  for (; n >= at_once; n -= at_once, p += at_once) {
    const std::uint32_t low = v ^ load_le32(p);
    const std::uint32_t high = load_le32(p + 4);
    v = tables[7][low & 0xFF] ^ tables[6][(low >> 8) & 0xFF] ^ tables[5][(low >> 16) & 0xFF] ^ tables[4][low >> 24] ^
        tables[3][high & 0xFF] ^ tables[2][(high >> 8) & 0xFF] ^ tables[1][(high >> 16) & 0xFF] ^ tables[0][high >> 24];
  }
  for (; n > 0; --n, ++p) v = (v >> 8) ^ tables[0][(v ^ *p) & 0xFF];
  return v;
}

#if defined(__x86_64__)
// What `stretch` bytes of zero do to a value, which is linear: a table for each of its bytes.
constexpr std::size_t stretch = 128;
using stretch_tables = std::array<std::array<std::uint32_t, 256>, 4>;

constexpr stretch_tables make_stretch_tables() {
  stretch_tables t{};
  for (std::size_t bit = 0; bit < 32; ++bit) {
    std::uint32_t v = std::uint32_t{1} << bit;
    for (std::size_t i = 0; i < stretch; ++i) v = (v >> 8) ^ tables[0][v & 0xFF];
    const std::size_t of_bit = std::size_t{1} << bit % 8;
    for (std::size_t i = 0; i < of_bit; ++i) t[bit / 8][of_bit + i] = t[bit / 8][i] ^ v;
  }
  return t;
}
constexpr stretch_tables over_stretch = make_stretch_tables();

std::uint32_t past_stretch(std::uint64_t v) {
  return over_stretch[0][v & 0xFF] ^ over_stretch[1][(v >> 8) & 0xFF] ^ over_stretch[2][(v >> 16) & 0xFF] ^
         over_stretch[3][(v >> 24) & 0xFF];
}

std::uint64_t eight_at(const std::uint8_t* p) {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// The processor has an instruction for it; the value that is handed in and out is inverted.  Each
// waits for the one before it, so three stretches are taken side by side and put together then.
__attribute__((target("sse4.2"))) std::uint32_t by_instruction(std::uint32_t v, const std::uint8_t* p, std::size_t n) {
  for (; n >= 3 * stretch; n -= 3 * stretch, p += 3 * stretch) {
    std::uint64_t first = v;
    std::uint64_t second = 0;
    std::uint64_t third = 0;
    for (std::size_t i = 0; i < stretch; i += at_once) {
      first = _mm_crc32_u64(first, eight_at(p + i));
      second = _mm_crc32_u64(second, eight_at(p + stretch + i));
      third = _mm_crc32_u64(third, eight_at(p + 2 * stretch + i));
    }
    v = past_stretch(past_stretch(first) ^ second) ^ static_cast<std::uint32_t>(third);
  }
  std::uint64_t wide = v;
  for (; n >= at_once; n -= at_once, p += at_once) {
    wide = _mm_crc32_u64(wide, eight_at(p));
  }
  v = static_cast<std::uint32_t>(wide);
  for (; n > 0; --n, ++p) v = _mm_crc32_u8(v, *p);
  return v;
}
bool has_instruction() {
  static const bool has = __builtin_cpu_supports("sse4.2");
  return has;
}
#endif

}  // namespace

std::uint32_t crc32c_without_instruction(std::uint32_t crc, const void* bytes, std::size_t n) {
  return ~by_tables(~crc, static_cast<const std::uint8_t*>(bytes), n);
}

std::uint32_t crc32c(std::uint32_t crc, const void* bytes, std::size_t n) {
#if defined(__x86_64__)
  if (has_instruction()) return ~by_instruction(~crc, static_cast<const std::uint8_t*>(bytes), n);
#endif
  return crc32c_without_instruction(crc, bytes, n);
}

}  // namespace zvrdb::engine
