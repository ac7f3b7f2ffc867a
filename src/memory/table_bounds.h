// How far the tables may be read.  Counts and lengths stand in shared memory, so a
// table is taken to end where every one of them, and the mapping itself, agrees.
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
         tcb->cat_cntl && tcb->dist_cat && segment_length(tcb) <= tcb->shm_length;
}

// Slots of TRG_CNTL, and entries of each index of targets.
inline std::uint32_t trg_table_size(const DBR_TCB* tcb) {
  if (!tables_mapped(tcb)) return 0;
  const DBR_CNTL& cntl = *tcb->cntl;
  return std::min({cntl.num_trgs_allowed,
                   static_cast<std::uint32_t>(cntl.trg_cntl_len / sizeof(TRG_CNTL_ENTRY)),
                   static_cast<std::uint32_t>(cntl.name_index_len / sizeof(NAME_INDEX_ENTRY)),
                   static_cast<std::uint32_t>(cntl.dsu_index_len / sizeof(std::uint32_t))});
}

// Slots of DIST_CAT, and entries of CAT_CNTL.
inline std::uint32_t cat_table_size(const DBR_TCB* tcb) {
  if (!tables_mapped(tcb)) return 0;
  const DBR_CNTL& cntl = *tcb->cntl;
  return std::min({cntl.num_cat_alloc, static_cast<std::uint32_t>(cntl.cat_cntl_len / sizeof(CAT_CNTL_ENTRY)),
                   static_cast<std::uint32_t>(cntl.dist_cat_len / sizeof(DIST_CAT_ENTRY))});
}

}  // namespace zvrdb::memory
