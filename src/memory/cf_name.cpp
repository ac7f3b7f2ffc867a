// The names of change files, token by token.
#include "memory/cf_name.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "memory/trace.h"

namespace zvrdb::memory {
namespace {

std::string_view text_of(const cf_token& token) {
  return {token.text, token.length};
}

}  // namespace

cf_token token_of(const void* cf_name, std::uint32_t index) {
  const auto* name = static_cast<const unsigned char*>(cf_name);
  if (index >= cf_token_count || std::memchr(name, cf_end_mark, index)) return {"", 0, false};
  return token_at_offset(name, name[index]);
}

void get_name_diff(void* task, const void* a, const void* b, std::uint16_t* token, std::uint16_t* character) {
  const trace_bracket bracket(task, __func__);
  *character = 0;
  for (*token = 0; *token < cf_token_count; ++*token) {
    const cf_token in_a = token_of(a, *token);
    const cf_token in_b = token_of(b, *token);
    if (!in_a.present || !in_b.present) return;
    const std::string_view text_a = text_of(in_a);
    const std::string_view text_b = text_of(in_b);
    if (text_a == text_b) continue;
    const auto places = std::mismatch(text_a.begin(), text_a.end(), text_b.begin(), text_b.end());
    *character = static_cast<std::uint16_t>(places.first - text_a.begin());
    return;
  }
}

static_assert((cf_token_count - 1) * 16 + cf_text_len < 256 && cf_token_count * 16 < 256,
              "no difference leaves the eight bits");

std::uint8_t encoded_name_diff(void* task, const void* a, const void* b) {
  std::uint16_t token = 0;
  std::uint16_t character = 0;
  get_name_diff(task, a, b, &token, &character);
  return static_cast<std::uint8_t>(token * 16 + character);
}

std::int16_t get_type(void* task, const void* cf_name, std::uint16_t token_index) {
  constexpr std::int16_t fix = 0;
  constexpr std::int16_t update = 1;
  constexpr std::int16_t refresh = 2;
  constexpr std::int16_t unknown = 3;
  constexpr unsigned char no_token = 254;  // and 255
  std::int16_t type = unknown;
  const trace_bracket bracket(task, __func__, &type);
  const auto* name = static_cast<const unsigned char*>(cf_name);
  if (!name || token_index >= cf_token_count || name[token_index] >= no_token) {
    ZVR_TRACE(task, 5, 2, "%s", "This is an unknown type");
    return type;
  }
  const std::string_view text = text_of(token_at_offset(name, name[token_index]));
  if (text == "REF") {
    ZVR_TRACE(task, 5, 2, "%s", "This is a refresh file");
    return type = refresh;
  }
  if (text == "UPD") {
    ZVR_TRACE(task, 5, 2, "%s", "This is an update file");
    return type = update;
  }
  if (text == "FIX") {
    ZVR_TRACE(task, 5, 2, "%s", "This is a fix file");
    return type = fix;
  }
  ZVR_TRACE(task, 5, 2, "This has an unrecognised subtree token %.*s", static_cast<int>(text.size()),
            text.data());
  return type;
}

}  // namespace zvrdb::memory
