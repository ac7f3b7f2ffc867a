// A target by its network name, and the name of a target's server.
#include <cstring>

#include "memory/trace.h"
#include "targets/target_access.h"
#include "targets/targets.h"

namespace zvrdb::targets {
namespace {

TRG_CNTL_ENTRY* slot_by_dsu(void* task, const char* dsu) {
  DBR_TCB* tcb = tcb_of(task);
  const std::int64_t position = memory::find_dsu(task, dsu);
  if (position < 0 || position >= memory::trg_count(tcb)) return nullptr;
  return memory::trg_slot(tcb, tcb->dsu_index[position]);
}

}  // namespace

std::int16_t trg_from_rr(void* task, const char* rgn_ren, TRG_CNTL_ENTRY** entry) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "trg_from_rr", &rc);
  const DBR_CNTL* cntl = tcb_of(task)->cntl;
  char rr[16];
  std::memcpy(rr, rgn_ren, sizeof rr);
  // No network name means the network of this server.
  if (!rr[0] && cntl->local_dsu[0]) std::memcpy(rr, cntl->local_dsu, 8);
  char dsu[memory::dsu_text_len + 1];
  memory::dsu_text(dsu, rr, rr + 8);
  *entry = slot_by_dsu(task, dsu);
  if (!*entry) {
    ZVR_TRACE(task, 3, 2, "Have a second try after reordering the vector !!");
    memory::sort_dsu(task);
    *entry = slot_by_dsu(task, dsu);
  }
  if (!*entry) {
    trace.quitting();
    rc = DBE_NOT_FOUND;
  }
  return rc;
}

std::int16_t get_srv_name(void* task, const char* name, char* server) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "get_srv_name", &rc);
  const TRG_CNTL_ENTRY* slot = slot_of(task, name, nullptr);
  const TRG_CNTL_ENTRY* server_slot = slot ? memory::trg_slot(tcb_of(task), slot->srv_num) : nullptr;
  if (!server_slot) {
    trace.quitting();
    return rc = DBE_NOT_FOUND;
  }
  std::memcpy(server, server_slot->trg_name, sizeof server_slot->trg_name);
  return rc;
}

}  // namespace zvrdb::targets
