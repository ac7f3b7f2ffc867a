// How far the tables may be read.  Counts stand in shared memory, and the lengths there
// may by now be those of another generation.  So a table ends where the task laid it out
// to end, or earlier when its count says so.
#pragma once

#include <zvrco/zvrco.h>

#include <algorithm>
#include <cstdint>

#include "memory/dbr_tcb.h"

namespace zvrdb::memory {

inline DBR_TCB* tcb_of(void* task) {
  const co_task_slots* slots = task ? co_slots(task) : nullptr;
  return slots ? static_cast<DBR_TCB*>(slots->dbr_tcb) : nullptr;
}

inline bool tables_mapped(const DBR_TCB* tcb) {
  return tcb && tcb->cntl && tcb->shm_base && tcb->trg_cntl && tcb->name_index && tcb->dsu_index &&
         tcb->cat_cntl && tcb->dist_cat;
}

// Whole entries from the begin of a table to what lies behind it.
template <class Entry>
std::uint32_t entries_before(const Entry* table, const void* behind) {
  const auto bytes = reinterpret_cast<std::uintptr_t>(behind) - reinterpret_cast<std::uintptr_t>(table);
  return static_cast<std::uint32_t>(bytes / sizeof(Entry));
}

// A count that may be told while tables are built anew.
inline std::uint32_t count_now(const std::uint32_t& count) { return __atomic_load_n(&count, __ATOMIC_RELAXED); }
inline void tell_count(std::uint32_t* count, std::uint32_t n) { __atomic_store_n(count, n, __ATOMIC_RELAXED); }

// Slots of TRG_CNTL, and entries of each index of targets.
inline std::uint32_t trg_table_size(const DBR_TCB* tcb) {
  if (!tables_mapped(tcb)) return 0;
  return std::min({count_now(tcb->cntl->num_trgs_allowed), entries_before(tcb->trg_cntl, tcb->name_index),
                   entries_before(tcb->name_index, tcb->dsu_index),
                   entries_before(tcb->dsu_index, tcb->cat_cntl)});
}

// Slots of DIST_CAT, and entries of CAT_CNTL.
inline std::uint32_t cat_table_size(const DBR_TCB* tcb) {
  if (!tables_mapped(tcb)) return 0;
  return std::min({count_now(tcb->cntl->num_cat_alloc), entries_before(tcb->cat_cntl, tcb->dist_cat),
                   entries_before(tcb->dist_cat, tcb->shm_base + tcb->shm_length)});
}

}  // namespace zvrdb::memory
