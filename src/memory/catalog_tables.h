// The tables of change files with their bounds, looked at once for many lookups.  Valid
// while the semaphore is held and no change file is added or removed.
#pragma once

#include <algorithm>
#include <cstdint>

#include "memory/table_bounds.h"

namespace zvrdb::memory {

struct catalog_tables {
  DIST_CAT_ENTRY* slots = nullptr;
  std::uint32_t slot_count = 0;  // in use or free
  CAT_CNTL_ENTRY* index = nullptr;
  std::uint32_t count = 0;  // of the index: valid change files

  // Both null when out of bounds.
  DIST_CAT_ENTRY* slot(std::uint32_t number) const { return number < slot_count ? slots + number : nullptr; }
  DIST_CAT_ENTRY* slot_at(std::uint32_t position) const {
    return position < count ? slot(index[position].dist_idx) : nullptr;
  }
};

// Without any slot when the tables are not mapped.
inline catalog_tables catalog_of(const DBR_TCB* tcb) {
  const std::uint32_t size = cat_table_size(tcb);
  if (size == 0) return {};
  return {tcb->dist_cat, std::min(tcb->cntl->num_cat_inited, size), tcb->cat_cntl,
          std::min(tcb->cntl->num_cat_actual, size)};
}

}  // namespace zvrdb::memory
