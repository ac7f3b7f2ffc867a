// What the two indexes of targets are ordered by.  An entry whose number is out of
// bounds counts as one with an empty text, so that no search follows it.
#pragma once

#include <cstdint>
#include <cstring>

#include "memory/table_bounds.h"

namespace zvrdb::memory {

// A copy, always terminated: a slot may be full to its last byte.
struct order_text {
  char text[trg_name_len + 1];
};

struct name_order {
  DBR_TCB* tcb;
  std::uint32_t number_at(std::uint32_t position) const { return tcb->name_index[position].trg_index; }
  void text_of(std::uint32_t number, order_text* out) const {
    const TRG_CNTL_ENTRY* slot = trg_slot(tcb, number);
    if (slot) std::memcpy(out->text, slot->trg_name, trg_name_len);
    out->text[slot ? trg_name_len : 0] = 0;
  }
};

struct dsu_order {
  DBR_TCB* tcb;
  std::uint32_t number_at(std::uint32_t position) const { return tcb->dsu_index[position]; }
  void text_of(std::uint32_t number, order_text* out) const {
    const TRG_CNTL_ENTRY* slot = trg_slot(tcb, number);
    if (slot) return dsu_text_of(tcb, slot, out->text);
    out->text[0] = 0;
  }
};

}  // namespace zvrdb::memory
