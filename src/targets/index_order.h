// Moves of a target's number within the two indexes.  Each index holds every number
// of the table exactly once: the used part first, in order, then the free numbers,
// which stand in both indexes in the same order.  Positions are bounded by the caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zvrdb::targets {

// Takes the entry at `from` out and puts it in at `to`; what lies between closes up.
template <typename entry>
void move_entry(entry* index, std::uint32_t from, std::uint32_t to) {
  const entry moved = index[from];
  if (from < to) std::memmove(index + from, index + from + 1, (std::size_t{to} - from) * sizeof(entry));
  if (to < from) std::memmove(index + to + 1, index + to, (std::size_t{from} - to) * sizeof(entry));
  index[to] = moved;
}

}  // namespace zvrdb::targets
