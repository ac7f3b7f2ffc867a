// Matching of names against filters, by token and character.
#include "catalog/name_filter.h"

#include <cstring>
#include <string_view>

#include "memory/trace.h"

namespace zvrdb::catalog {
namespace {

using memory::cf_position;
using memory::cf_token;

constexpr char any_text = '*';
constexpr char any_character = '?';

std::string_view text_of(const cf_token& token) {
  return {token.text, token.length};
}

// The NUL is part of a token, whether the text area still has room for it or not.
char character_at(const cf_token& token, std::uint32_t place) {
  return place < token.length ? token.text[place] : '\0';
}

enum class token_match { no, yes, all };  // all: the rest of the name is not looked at

token_match match_token(const cf_token& filter, const cf_token& name, std::uint16_t index, cf_position last) {
  for (std::uint32_t i = 0; i <= name.length; ++i) {
    if (index == last.token && i == last.character) return token_match::all;
    const char wanted = character_at(filter, i);
    const char found = character_at(name, i);
    if (wanted == found) continue;
    if (wanted == any_text) return token_match::yes;
    if (wanted != any_character || i == name.length) return token_match::no;
  }
  return token_match::yes;
}

constexpr std::size_t short_room = sizeof token_test::bytes;

bool takes_any_token(const cf_token& token) {
  return token.length == 1 && token.text[0] == any_text;
}

bool is_wild(const cf_token& token) {
  constexpr char wildcards[] = {any_text, any_character};
  return text_of(token).find_first_of(std::string_view(wildcards, sizeof wildcards)) !=
         std::string_view::npos;
}

token_test test_of(const cf_token& token, std::uint16_t index) {
  token_test test = {index, !is_wild(token), {}, {}};
  unsigned char mask[short_room] = {};
  if (token.length >= short_room) return test;
  std::memcpy(test.bytes, token.text, token.length);
  std::memset(mask, 0xFF, token.length + 1);
  std::memcpy(test.mask, mask, sizeof mask);
  return test;
}

// Whether the name's token at this offset is equal to the filter's.
bool is_equal(const token_test& test, const cf_token& token, const unsigned char* name,
              unsigned char offset) {
  const unsigned char* text = name + memory::cf_text_offset + offset;
  const std::size_t room = memory::cf_text_len - offset;
  if (token.length < short_room && room >= short_room) {
    std::uint64_t found[2];
    std::memcpy(found, text, sizeof found);
    return (((found[0] ^ test.bytes[0]) & test.mask[0]) | ((found[1] ^ test.bytes[1]) & test.mask[1])) == 0;
  }
  return token.length <= room && std::memcmp(text, token.text, token.length) == 0 &&
         (token.length == room || text[token.length] == 0);
}

cf_position first_diff(const name_filter& filter) {
  constexpr char wildcards[] = {any_text, any_character};
  for (std::uint16_t i = 0; i < memory::cf_token_count; ++i) {
    if (!filter.tokens[i].present) break;
    const std::size_t place =
        text_of(filter.tokens[i]).find_first_of(std::string_view(wildcards, sizeof wildcards));
    if (place != std::string_view::npos) return {i, static_cast<std::uint16_t>(place)};
  }
  return no_wildcard;
}

cf_position last_diff(const name_filter& filter) {
  cf_position last = no_wildcard;
  if (filter.tokens[no_wildcard.token].present) return last;
  // A filter that ends before its tenth token has no such place: a name may go on where
  // the filter has ended.
  for (std::uint16_t i = no_wildcard.token; i-- > 0;) {
    const cf_token& token = filter.tokens[i];
    const std::size_t place = text_of(token).find(any_text);
    if (!token.present || place == std::string_view::npos) break;
    last = {i, static_cast<std::uint16_t>(place)};
    if (place != 0) break;
  }
  return last;
}

}  // namespace

name_filter filter_of(void* task, const void* filter) {
  const trace_bracket bracket(task, __func__);
  name_filter taken = {};
  for (std::uint32_t i = 0; i < memory::cf_token_count; ++i) taken.tokens[i] = memory::token_of(filter, i);
  taken.first = first_diff(taken);
  taken.last = last_diff(taken);
  for (; taken.end < memory::cf_token_count && taken.tokens[taken.end].present; ++taken.end) {
    const cf_token& token = taken.tokens[taken.end];
    if (takes_any_token(token)) continue;
    token_test& test = taken.tests[taken.test_count++];
    test = test_of(token, static_cast<std::uint16_t>(taken.end));
    // At this place a name has matched before its token is compared.
    if (taken.end == taken.last.token) test.equal = false;
  }
  return taken;
}

int cmp_match_first(void* task, const name_filter& filter, const void* name, cf_position place) {
  const trace_bracket bracket(task, __func__);
  for (std::uint16_t i = 0; i < place.token; ++i) {
    const cf_token& wanted = filter.tokens[i];
    const cf_token found = memory::token_of(name, i);
    if (!wanted.present || !found.present) return int{wanted.present} - int{found.present};
    if (const int order = text_of(wanted).compare(text_of(found)); order != 0) return order;
  }
  // An absent token counts as empty here.
  const std::string_view wanted = text_of(filter.tokens[place.token]);
  const std::string_view found = text_of(memory::token_of(name, place.token));
  return wanted.substr(0, place.character).compare(found.substr(0, place.character));
}

std::uint32_t mismatch(const name_filter& filter, const void* name) {
  const auto* bytes = static_cast<const unsigned char*>(name);
  const void* mark = std::memchr(bytes, memory::cf_end_mark, memory::cf_token_count);
  const unsigned char* const behind =
      mark ? static_cast<const unsigned char*>(mark) : bytes + memory::cf_token_count;
  const auto has_token = [&](std::uint32_t index) {
    return bytes + index < behind && bytes[index] < memory::cf_text_len;
  };
  for (const token_test* test = filter.tests; test != filter.tests + filter.test_count; ++test) {
    const cf_token& wanted = filter.tokens[test->index];
    if (!has_token(test->index)) return test->index;
    const unsigned char offset = bytes[test->index];
    if (test->equal) {
      if (!is_equal(*test, wanted, bytes, offset)) return test->index;
      continue;
    }
    const token_match found =
        match_token(wanted, memory::token_at_offset(bytes, offset), test->index, filter.last);
    if (found != token_match::yes) return found == token_match::all ? matched : test->index;
  }
  return has_token(filter.end) ? filter.end : matched;
}

}  // namespace zvrdb::catalog
