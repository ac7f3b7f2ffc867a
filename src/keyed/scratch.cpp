#include "keyed/scratch.h"

#include "memory/trace.h"

namespace zvrdb::keyed {

unsigned char* scratch_area(void* task, const char* tag) {
  auto* tcb = static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb);
  if (tcb && !tcb->scratch) {
    tcb->scratch = static_cast<unsigned char*>(co_malloc(task, scratch_capacity, CO_MEM_PRIVATE, tag));
    if (tcb->scratch) tcb->scratch_len = scratch_capacity;
  }
  if (tcb && tcb->scratch && tcb->scratch_len >= scratch_capacity) return tcb->scratch;
  co_log2(task, 36355, 0, 0, 0, "%s", "temp ext buffer");
  return nullptr;
}

}  // namespace zvrdb::keyed
