// Which bytes of a node's entries a change is about.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "engine/format.h"

namespace zvrdb::engine {

// Offsets in the node, from the first changed byte to behind the last.  None if `to` isn't beyond
// `from`: the head alone.
struct byte_range {
  std::uint16_t from;
  std::uint16_t to;
};
inline constexpr byte_range all_entries{static_cast<std::uint16_t>(node_head_size), static_cast<std::uint16_t>(page_size)};
inline constexpr byte_range no_entries{static_cast<std::uint16_t>(page_size), static_cast<std::uint16_t>(node_head_size)};

inline byte_range unite(const byte_range& a, const byte_range& b) {
  return {std::min(a.from, b.from), std::max(a.to, b.to)};
}

// The bytes from the first to the last in which the entries of two nodes differ.
inline byte_range differing_entries(const std::uint8_t* one, const std::uint8_t* other) {
  constexpr std::size_t step = 16;   // compared at once
  std::size_t from = node_head_size;
  while (from + step <= page_size && std::memcmp(one + from, other + from, step) == 0) from += step;
  while (from < page_size && one[from] == other[from]) ++from;
  if (from == page_size) return no_entries;
  std::size_t to = page_size;
  while (to - from >= step && std::memcmp(one + to - step, other + to - step, step) == 0) to -= step;
  while (one[to - 1] == other[to - 1]) --to;
  return {static_cast<std::uint16_t>(from), static_cast<std::uint16_t>(to)};
}

}  // namespace zvrdb::engine
