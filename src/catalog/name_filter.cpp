// Matching of names against filters, by token and character.
#include "catalog/name_filter.h"

#include <cstring>
#include <string_view>

#include "memory/trace.h"

namespace zvrdb::catalog {
namespace {

using memory::cf_position;
using memory::cf_token;
using memory::cf_tokens;

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

bool takes_any_token(const cf_token& token) {
  return token.length == 1 && token.text[0] == any_text;
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
  name_filter taken;
  cf_tokens tokens(filter);
  for (std::size_t i = 0; i < memory::cf_token_count; ++i, tokens.next()) {
    taken.tokens[i] = tokens.current();
    const std::string_view text = text_of(taken.tokens[i]);
    taken.wild[i] = text.find(any_text) != text.npos || text.find(any_character) != text.npos;
  }
  taken.first = first_diff(taken);
  taken.last = last_diff(taken);
  return taken;
}

int cmp_match_first(void* task, const name_filter& filter, const void* name, cf_position place) {
  const trace_bracket bracket(task, __func__);
  cf_tokens found(name);
  for (std::uint16_t i = 0; i < place.token; ++i, found.next()) {
    const cf_token& wanted = filter.tokens[i];
    if (!wanted.present || !found.present()) return int{wanted.present} - int{found.present()};
    if (const int order = text_of(wanted).compare(text_of(found.current())); order != 0) return order;
  }
  // An absent token counts as empty here.
  const std::string_view wanted = text_of(filter.tokens[place.token]);
  const std::string_view text = text_of(found.current());
  return wanted.substr(0, place.character).compare(text.substr(0, place.character));
}

int match_filter(void* task, const name_filter& filter, const void* name) {
  const trace_bracket bracket(task, __func__);
  constexpr int match = 0;
  constexpr int no_match = 1;
  cf_tokens found(name);
  for (std::uint16_t i = 0; i < memory::cf_token_count; ++i, found.next()) {
    const cf_token& wanted = filter.tokens[i];
    if (!wanted.present) return found.present() ? no_match : match;
    if (takes_any_token(wanted)) continue;
    if (!found.present()) return no_match;
    if (!filter.wild[i] && i != filter.last.token) {
      if (!found.is(wanted)) return no_match;
      continue;
    }
    switch (match_token(wanted, found.current(), i, filter.last)) {
      case token_match::no:
        return no_match;
      case token_match::all:
        return match;
      case token_match::yes:
        break;
    }
  }
  return match;
}

}  // namespace zvrdb::catalog
