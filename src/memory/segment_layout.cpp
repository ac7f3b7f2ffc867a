// Where the tables lie in the shared segment, from the lengths in DBR_CNTL.
#include <cstdio>
#include <initializer_list>
#include <iterator>

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

bool lay_out(DBR_TCB* tcb, unsigned char* base, std::uint64_t mapped) {
  const DBR_CNTL* cntl = tcb->cntl;
  forget_layout(tcb);
  if (!cntl || !base) return false;
  // Read once: they may be changing under a task that does not own the semaphore.
  const std::uint32_t lengths[] = {cntl->trg_cntl_len, cntl->name_index_len, cntl->dsu_index_len,
                                   cntl->cat_cntl_len, cntl->dist_cat_len};
  std::uint64_t offsets[std::size(lengths)];
  std::uint64_t end = segment_header_len;
  for (std::size_t i = 0; i < std::size(lengths); ++i) {
    // The segment begins on a page; so each table is aligned for its entries.
    if (lengths[i] % segment_header_len != 0) return false;
    offsets[i] = end;
    end += lengths[i];
  }
  if (end > mapped) return false;
  tcb->shm_base = base;
  tcb->trg_cntl = reinterpret_cast<TRG_CNTL_ENTRY*>(base + offsets[0]);
  tcb->name_index = reinterpret_cast<NAME_INDEX_ENTRY*>(base + offsets[1]);
  tcb->dsu_index = reinterpret_cast<std::uint32_t*>(base + offsets[2]);
  tcb->cat_cntl = reinterpret_cast<CAT_CNTL_ENTRY*>(base + offsets[3]);
  tcb->dist_cat = reinterpret_cast<DIST_CAT_ENTRY*>(base + offsets[4]);
  tcb->shm_length = end;
  return true;
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
