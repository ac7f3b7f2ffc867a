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

inline bool is_all(const byte_range& r) { return r.from <= all_entries.from && r.to >= all_entries.to; }
inline bool lies_in(const byte_range& inner, const byte_range& outer) {
  return inner.to <= inner.from || (inner.from >= outer.from && inner.to <= outer.to);
}

// Whether a stretch of both nodes is the same.
template <std::size_t Step>
bool is_same(const std::uint8_t* one, const std::uint8_t* other) {
  std::uint64_t differing = 0;
  for (std::size_t i = 0; i < Step; i += sizeof differing) {
    std::uint64_t a;
    std::uint64_t b;
    std::memcpy(&a, one + i, sizeof a);
    std::memcpy(&b, other + i, sizeof b);
    differing |= a ^ b;
  }
  return differing == 0;
}

// The bytes from the first to the last in which the entries of two nodes differ.
inline byte_range differing_entries(const std::uint8_t* one, const std::uint8_t* other) {
  constexpr std::size_t far = 64;   // compared at once
  constexpr std::size_t near = 8;
  std::size_t from = node_head_size;
  while (from + far <= page_size && is_same<far>(one + from, other + from)) from += far;
  while (from + near <= page_size && is_same<near>(one + from, other + from)) from += near;
  while (from < page_size && one[from] == other[from]) ++from;
  if (from == page_size) return no_entries;
  std::size_t to = page_size;
  while (to - from >= far && is_same<far>(one + to - far, other + to - far)) to -= far;
  while (to - from >= near && is_same<near>(one + to - near, other + to - near)) to -= near;
  while (one[to - 1] == other[to - 1]) --to;
  return {static_cast<std::uint16_t>(from), static_cast<std::uint16_t>(to)};
}

}  // namespace zvrdb::engine
