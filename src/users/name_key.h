// Keys that are a record type and a name: 16 bytes of name in the files of users and
// profiles, 64 in those of groups.  Names are NUL-terminated or fill their width; no more
// than that is read of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "keyed/keyed.h"
#include "memory/codes.h"

namespace zvrdb::users {

// In host order, zero filled behind the name.
template <std::size_t width>
struct name_key {
  std::uint32_t db_id;
  char name[width];
  std::uint32_t recnum;
};
using user_key = name_key<16>;
using group_key = name_key<64>;
static_assert(sizeof(user_key) == 24);
static_assert(sizeof(group_key) == 72);

template <std::size_t width>
name_key<width> key_from(std::uint32_t db_id, const void* name) {
  name_key<width> key = {};
  key.db_id = db_id;
  std::memcpy(key.name, name, strnlen(static_cast<const char*>(name), width));
  return key;
}

// The name that keys[0] points at, or null when there is none.
const void* given_name(std::uint16_t num_keys, const void* const* keys);

// Where a list begins, and how much of its key all entries share.
template <std::size_t width>
struct name_filter {
  name_key<width> start;
  std::uint16_t match;
};

// A filter with a `*` asks for the names that begin with what stands before it; one
// without asks for the name that it is, so that an empty one asks for the empty name.  A
// prefix as long as the width asks for just that name, so no byte behind it is needed.
template <std::size_t width>
name_filter<width> filter_from(std::uint32_t db_id, const void* filter) {
  name_filter<width> made = {key_from<width>(db_id, filter), sizeof(std::uint32_t) + width};
  if (const void* star = std::memchr(made.start.name, '*', width)) {
    const auto prefix = static_cast<std::size_t>(static_cast<const char*>(star) - made.start.name);
    std::memset(made.start.name + prefix, 0, width - prefix);
    made.match = static_cast<std::uint16_t>(sizeof(std::uint32_t) + prefix);
  }
  return made;
}

// Sets up the state of a list of names.  0; 8211 fewer bytes than such a state takes, and
// nothing is changed; 8195 no filter.
template <std::size_t width>
std::int16_t begin_name_list(std::uint32_t db_id, const void* filter, void* list_state, std::uint32_t size) {
  constexpr std::uint16_t key_len = sizeof(name_key<width>);
  if (size < keyed::list_state_len(key_len)) return DBE_LIST_TOO_SMALL;
  // A cleared state is one without entries.
  std::memset(list_state, 0, keyed::list_state_len(key_len));
  if (!filter) return DBE_BAD_RECORD;
  const name_filter<width> made = filter_from<width>(db_id, filter);
  keyed::set_list_state(list_state, &made.start, sizeof made.start, {0, made.match, key_len});
  return DBE_OK;
}

}  // namespace zvrdb::users
