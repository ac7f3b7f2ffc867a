// A target record as a client builds it: the flat 21,724 bytes, field by field.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace target_test {

inline constexpr std::size_t record_len = 21724;

// A name or value with a number behind it.
inline std::string numbered(std::string_view text, unsigned long long number) {
  std::string whole(text);
  whole.append(std::to_string(number));
  return whole;
}

class Record {
 public:
  explicit Record(std::string_view name) : bytes(record_len) { text(0, 64, name); }

  Record& text(std::size_t offset, std::size_t width, std::string_view value) {
    std::memset(bytes.data() + offset, 0, width);
    std::memcpy(bytes.data() + offset, value.data(), std::min(value.size(), width));
    return *this;
  }
  Record& byte(std::size_t offset, unsigned value) {
    bytes[offset] = static_cast<unsigned char>(value);
    return *this;
  }
  Record& description(std::string_view value) { return text(64, 60, value); }
  Record& rgn(std::string_view value) { return text(124, 8, value); }
  Record& ren(std::string_view value) { return text(132, 8, value); }
  Record& type(unsigned bits) { return byte(144, bits); }
  Record& os(unsigned code) { return byte(145, code); }
  Record& mode(unsigned bits) { return byte(146, bits); }
  Record& server(std::string_view name) { return text(192, 64, name); }
  Record& hardware(unsigned index, std::string_view name, std::string_view value) {
    const std::uint16_t count = static_cast<std::uint16_t>(index + 1);
    std::memcpy(bytes.data() + 700, &count, sizeof count);
    text(988 + index * 162, 81, name);
    return text(988 + index * 162 + 81, 81, value);
  }

  std::string name() const { return std::string(text_at(0, 64)); }
  std::string_view text_at(std::size_t offset, std::size_t width) const {
    const char* at = reinterpret_cast<const char*>(bytes.data() + offset);
    return {at, strnlen(at, width)};
  }
  std::uint32_t u32(std::size_t offset) const {
    std::uint32_t value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
  }

  std::vector<unsigned char> bytes;
};

// Bits of trg_type and trg_mode.
inline constexpr unsigned remote = 128, local = 32, mobile = 16, server = 8, base = 4, client = 2;
inline constexpr unsigned pull = 1, push = 2, focal = 4, focal_point = 8;
inline constexpr std::uint32_t no_link = 0xFFFFFFFF;

}  // namespace target_test
