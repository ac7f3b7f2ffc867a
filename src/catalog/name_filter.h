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

// A filter taken apart once for the many names it is laid on.  Its texts stay the caller's.
struct name_filter {
  memory::cf_token tokens[memory::cf_token_count];
  bool wild[memory::cf_token_count];  // the token holds a wildcard

  // Place of the first wildcard: a match is equal to the filter before it.
  memory::cf_position first;
  // Place from which on the filter's wildcards take anything.  Only a filter of exactly
  // ten tokens has one; no_wildcard for all others.
  memory::cf_position last;
};
name_filter filter_of(void* task, const void* filter);

// Order of the filter against the name before a place: below 0, 0, above 0.
int cmp_match_first(void* task, const name_filter& filter, const void* name, memory::cf_position place);

// 0 the name matches, 1 it does not.  A comparison that gets as far as `last` has matched.
int match_filter(void* task, const name_filter& filter, const void* name);

}  // namespace zvrdb::catalog
