// Defaults of fields that a text need not name.
#pragma once

#include <algorithm>
#include <cstdint>

namespace zvrdb::textrec {

// A u16 of which the low byte is used: 0 becomes `value`.  Of a record that ends inside
// the field only the bytes that are there are looked at.
inline bool default_word(void* record, std::uint32_t record_len, std::uint32_t offset, unsigned char value) {
  if (offset >= record_len) return false;
  auto* field = static_cast<unsigned char*>(record) + offset;
  const auto* end = field + std::min<std::uint32_t>(2, record_len - offset);
  if (std::any_of(static_cast<const unsigned char*>(field), end,
                  [](unsigned char byte) { return byte != 0; }))
    return false;
  *field = value;
  return true;
}

}  // namespace zvrdb::textrec
