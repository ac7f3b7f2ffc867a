#include <cstring>

#include "rivals/rival.h"

namespace bench {
namespace {

constexpr std::size_t number_at = name_len - 4;
constexpr std::uint32_t kinds = 50;

}  // namespace

void make_group(std::uint32_t number, unsigned char* out) {
  // Server and target number, both of which repeat.
  const std::uint32_t halves[2] = {number % 7, number * 2654435761u};
  std::memcpy(out, halves, group_len);
}

void make_record_name(std::uint32_t i, Record* out) {
  static constexpr char text[] = "KLUND   LOCAL   INSTALL ";
  static constexpr std::size_t text_len = sizeof text - 1;
  std::memset(out->name, 0, name_len);
  std::memcpy(out->name, text, text_len);
  // An odd factor moves every number to another one.
  const std::uint32_t scattered = i * 2654435761u;
  for (unsigned digit = 0; digit < 8; ++digit)
    out->name[text_len + digit] = static_cast<unsigned char>("0123456789ABCDEF"[scattered >> (28 - 4 * digit) & 15]);
  std::memcpy(out->name + number_at, &i, sizeof i);
}

void make_record(std::uint32_t i, Record* out) {
  make_record_name(i, out);
  make_group(i / records_of_group, out->group);
  out->kind = i % kinds;
  for (std::size_t b = 0; b < body_len; ++b) out->body[b] = static_cast<unsigned char>(1 + (i * 31 + b * 7) % 251);
}

std::uint32_t number_of(const unsigned char* name) {
  std::uint32_t i = 0;
  std::memcpy(&i, name + number_at, sizeof i);
  return i;
}

}  // namespace bench
