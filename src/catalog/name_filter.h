// Filters on names of change files: names whose tokens may hold `*` and `?`.
//
//   `*`  alone in its token: one token, or none at all.  Inside a token: the rest of the
//        name's token; what follows it in the filter's token is not looked at.
//   `?`  exactly one character.
//
// A name's own `*` or `?` is a character like any other: equal to the filter's, the
// comparison goes on behind it.  In a damaged filter or name, a token whose offset leads
// nowhere is absent like those behind the end (memory/cf_name.h).
#pragma once

#include <cstdint>

#include "memory/cf_name.h"

namespace zvrdb::catalog {

// Stands for "nowhere" in both places below.  It is a place all the same: what the last
// of eleven tokens holds is not compared.
inline constexpr memory::cf_position no_wildcard = {10, 0};

// A token of a filter that a name is tested for.
struct token_test {
  std::uint16_t index;  // of the token
  bool equal;           // it holds no wildcard
  // Of a text without wildcards and shorter than 16 bytes: the bytes with their NUL, and
  // which bytes those are.
  std::uint64_t bytes[2];
  std::uint64_t mask[2];
};

// A filter taken apart once for the many names it is laid on.  Its texts stay the caller's.
struct name_filter {
  memory::cf_token tokens[memory::cf_token_count];
  std::uint32_t end;  // its first absent token, where a name must end too; 11 none
  // The tokens before the end but for those that are a lone `*`.
  token_test tests[memory::cf_token_count];
  std::uint32_t test_count;
  // Place of the first wildcard: a match is equal to the filter before it.
  memory::cf_position first;
  // Place from which on the filter's wildcards take anything.  Only a filter of exactly
  // ten tokens has one; no_wildcard for all others.
  memory::cf_position last;
};
name_filter filter_of(void* task, const void* filter);

// Order of the filter against the name before a place: below 0, 0, above 0.
int cmp_match_first(void* task, const name_filter& filter, const void* name, memory::cf_position place);

// The token that keeps the name from matching, behind which nothing was looked at; or
// `matched`.  A comparison that gets as far as `last` has matched.
inline constexpr std::uint32_t matched = memory::cf_token_count + 1;
std::uint32_t mismatch(const name_filter& filter, const void* name);

}  // namespace zvrdb::catalog
