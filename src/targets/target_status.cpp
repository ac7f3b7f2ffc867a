// The volatile status of targets, kept in memory only: a u16 counter, a byte that
// falls with it, and a byte that the timer leaves alone.
#include <cstring>

#include "memory/trace.h"
#include "targets/target_access.h"
#include "targets/targets.h"

namespace zvrdb::targets {

std::int16_t get_trg_status(void* task, const char* name, void* status) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "get_trg_status", &rc);
  TRG_CNTL_ENTRY* slot = slot_of(task, name, nullptr);
  if (!slot) {
    trace.quitting();
    return rc = DBE_NOT_FOUND;
  }
  apply_local_dsu(tcb_of(task), slot->trg_type, slot->rgn);  // as any read of a target does
  std::memcpy(status, slot->trg_status, sizeof slot->trg_status);
  return rc;
}

std::int16_t time_trg_stat(void* task, std::uint16_t elapsed) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "time_trg_stat", &rc);
  DBR_TCB* tcb = tcb_of(task);
  // By position of the slots, not through an index: after deletions the last ones
  // are not reached.
  const std::uint32_t count = memory::trg_count(tcb);
  for (std::uint32_t i = 0; i < count; ++i) {
    unsigned char* status = tcb->trg_cntl[i].trg_status;
    std::uint16_t counter;
    std::memcpy(&counter, status, sizeof counter);
    if (counter <= elapsed) {
      std::memset(status, 0, 3);
    } else {
      counter = static_cast<std::uint16_t>(counter - elapsed);
      std::memcpy(status, &counter, sizeof counter);
    }
  }
  return rc;
}

}  // namespace zvrdb::targets
