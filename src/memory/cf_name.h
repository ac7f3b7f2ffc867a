// Names of change files: up to eleven tokens in 76 bytes.  They come from callers and
// files, so nothing in them is believed: an offset outside the text area is an absent
// token, all tokens behind the end mark (255) and behind the eleventh are absent, and a
// token ends with the text area at the latest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zvrdb::memory {

inline constexpr std::size_t cf_name_len = 76;
inline constexpr std::size_t cf_token_count = 11;
inline constexpr std::size_t cf_text_offset = cf_token_count;
inline constexpr std::size_t cf_text_len = 65;
inline constexpr unsigned char cf_end_mark = 255;
static_assert(cf_text_offset + cf_text_len == cf_name_len);

// A token's text inside the name, without its NUL.  present is false for an absent
// token, whose text counts as "" with length 0.
struct cf_token {
  const char* text;
  std::uint32_t length;
  bool present;
};
cf_token token_of(const void* cf_name, std::uint32_t index);

// The token at this offset of the text area, whatever the table says of it.
inline cf_token token_at_offset(const unsigned char* name, unsigned char offset) {
  if (offset >= cf_text_len) return {"", 0, false};
  const char* text = reinterpret_cast<const char*>(name + cf_text_offset + offset);
  return {text, static_cast<std::uint32_t>(strnlen(text, cf_text_len - offset)), true};
}

// A place in a name.
struct cf_position {
  std::uint16_t token;
  std::uint16_t character;
};

// First place where a and b differ: the first token that one of them lacks, character 0;
// or the first character that differs, a token that ends earlier differing at its end.
// Equal names so "differ" where they end, which is at token 11 for names of eleven.
void get_name_diff(void* task, const void* a, const void* b, std::uint16_t* token, std::uint16_t* character);

// What CAT_CNTL keeps of it: token x 16 + character in 8 bits.  A character above 15
// spills into the token's half.
std::uint8_t encoded_name_diff(void* task, const void* a, const void* b);

// Class of a change file by the token at this index, before the end mark or behind it: 0 FIX, 1 UPD, 2 REF; 3
// another token, none there, or no name (null).
std::int16_t get_type(void* task, const void* cf_name, std::uint16_t token_index);

}  // namespace zvrdb::memory
