// Moves of a target's number within the two indexes.  Each index holds every number
// of the table exactly once: the used part first, in order, then the free numbers,
// which stand in both indexes in the same order.  Positions are bounded by the caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "memory/dbr_tcb.h"

namespace zvrdb::targets {

// Takes the entry at `from` out and puts it in at `to`; what lies between closes up.
template <typename entry>
void move_entry(entry* index, std::uint32_t from, std::uint32_t to) {
  const entry moved = index[from];
  if (from < to) std::memmove(index + from, index + from + 1, (std::size_t{to} - from) * sizeof(entry));
  if (to < from) std::memmove(index + to + 1, index + to, (std::size_t{from} - to) * sizeof(entry));
  index[to] = moved;
}

// Gives the entry at `from` of the used part the place that its text has now; it is
// the only one out of order.  find_place searches the used part without it and
// answers a position, or -1 for behind the last.
template <typename entry, typename search>
void put_in_order(DBR_TCB* tcb, entry* index, std::uint32_t from, search find_place) {
  DBR_CNTL* cntl = tcb->cntl;
  const std::uint32_t last = memory::trg_count(tcb) - 1;
  move_entry(index, from, last);
  cntl->num_trgs_actual = last;
  const std::int64_t place = find_place();
  cntl->num_trgs_actual = last + 1;
  if (place >= 0) move_entry(index, last, static_cast<std::uint32_t>(place));
}

}  // namespace zvrdb::targets
