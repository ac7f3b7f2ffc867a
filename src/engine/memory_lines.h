// Lines of memory, in which the processor fetches it: tables of the engine begin at one, and what a
// search is about to read is called for while it still does something else.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zvrdb::engine {

inline constexpr std::size_t memory_line = 64;   // bytes

// The first place at or behind `memory` where a line begins, less than a line away.
template <class Entry>
Entry* at_a_line(void* memory) {
  static_assert(memory_line % alignof(Entry) == 0);
  const std::size_t over = reinterpret_cast<std::uintptr_t>(memory) % memory_line;
  return reinterpret_cast<Entry*>(static_cast<char*>(memory) + (over == 0 ? 0 : memory_line - over));
}

// These bytes are about to be read.
inline void call_for(const void* from, std::size_t n) {
  for (std::size_t at = 0; at < n; at += memory_line) __builtin_prefetch(static_cast<const char*>(from) + at);
}

}  // namespace zvrdb::engine
