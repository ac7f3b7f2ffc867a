// Where the tables lie in the shared segment, from the lengths in DBR_CNTL.
#include <cstdio>
#include <initializer_list>

#include "memory/dbr_tcb.h"

namespace zvrdb::memory {

std::uint64_t segment_length(const DBR_TCB* tcb) {
  const DBR_CNTL* cntl = tcb->cntl;
  if (!cntl) return segment_header_len;
  std::uint64_t length = segment_header_len;
  for (const std::uint32_t part : {cntl->trg_cntl_len, cntl->name_index_len, cntl->dsu_index_len,
                                   cntl->cat_cntl_len, cntl->dist_cat_len})
    length += part;
  return length;
}

void lay_out(DBR_TCB* tcb, unsigned char* base) {
  const DBR_CNTL* cntl = tcb->cntl;
  if (!cntl || !base) return forget_layout(tcb);
  // Every length is a multiple of 4 and the segment begins on a page, so that each
  // table is aligned for its entries.
  unsigned char* at = base + segment_header_len;
  tcb->shm_base = base;
  tcb->trg_cntl = reinterpret_cast<TRG_CNTL_ENTRY*>(at);
  at += cntl->trg_cntl_len;
  tcb->name_index = reinterpret_cast<NAME_INDEX_ENTRY*>(at);
  at += cntl->name_index_len;
  tcb->dsu_index = reinterpret_cast<std::uint32_t*>(at);
  at += cntl->dsu_index_len;
  tcb->cat_cntl = reinterpret_cast<CAT_CNTL_ENTRY*>(at);
  at += cntl->cat_cntl_len;
  tcb->dist_cat = reinterpret_cast<DIST_CAT_ENTRY*>(at);
  tcb->shm_length = segment_length(tcb);
}

void forget_layout(DBR_TCB* tcb) {
  tcb->dist_cat = nullptr;
  tcb->cat_cntl = nullptr;
  tcb->trg_cntl = nullptr;
  tcb->dsu_index = nullptr;
  tcb->name_index = nullptr;
  tcb->shm_base = nullptr;
  tcb->shm_length = 0;
}

void segment_name(std::uint32_t generation, char* out) {
  constexpr std::size_t room = 16;
  std::snprintf(out, room, "MEM_%4.4lu", static_cast<unsigned long>(generation));
}

}  // namespace zvrdb::memory
