// Conversion of a stored record to the caller's form, without a frame.
#include "frame/entry.h"
#include "keyed/keyed.h"
#include "memory/trace.h"

extern "C" int16_t parse_keyed(void* task, uint32_t db_id, const void* external, void* internal,
                               uint32_t* external_len, uint32_t* internal_len) {
  using namespace zvrdb;
  if (!task) return DBE_INIT_FAILED;
  if (!external || !internal || !external_len || !internal_len) return DBE_BAD_RECORD;
  // The converters look names up in the tables that a task's first call maps.
  const DBR_TCB* tcb = frame::tcb_of(task);
  if (!tcb || !tcb->shm_base) return DBE_INIT_FAILED;
  return keyed::parse_keyed(task, db_id, external, internal, external_len, internal_len);
}
