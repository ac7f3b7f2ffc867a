// Calls on the target table beside the generic ones.
#include <cstring>

#include "frame/call_bracket.h"
#include "memory/shared_tables.h"
#include "targets/targets.h"

using namespace zvrdb;
using namespace zvrdb::frame;

namespace {

constexpr std::uint32_t no_status_read = 36385;
constexpr std::uint32_t no_place_for_name = 36386;

// Writes the status into the entry that the name's place in the index leads to: the
// target of that name or, when there is none, the next one above it.
std::int16_t write_status(void* task, DBR_TCB* tcb, const char* name, const void* status) {
  const std::int64_t position = memory::locate_name(task, name);
  TRG_CNTL_ENTRY* entry = position < 0 ? nullptr : memory::trg_slot(tcb, tcb->name_index[position].trg_index);
  if (!entry) {
    co_log2(task, no_place_for_name, 0, 0, 0, "%s", "");
    return DBE_NOT_FOUND;
  }
  std::memcpy(entry->trg_status, status, sizeof entry->trg_status);
  return DBE_OK;
}

// The task still stands where its db_get_trg_stat left it: the semaphore is its own
// and the segment the current one.
bool holds_memory(void* task, const DBR_TCB* tcb) {
  return tcb->sema4[memory_class] != 0 && co_lock_sema4(task, tcb->sema4[memory_class]) != 0 &&
         tcb->shm_base && tcb->shm_generation == tcb->cntl->shm_generation;
}

}  // namespace

extern "C" {

int16_t db_get_trg_index(void* task, const char* name, uint32_t* number) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::read, DB_TRG, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  if (!name || !number) return rc = DBE_NO_TARGET;
  return rc = memory::get_trg_index(task, name, number);
}

int16_t db_rename_trg(void* task, const char* old_name, const char* new_name) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::write, DB_TRG, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  if (!old_name || !new_name) return rc = DBE_NOT_FOUND;
  return rc = targets::rename_trg(task, old_name, new_name);
}

int16_t db_trg_from_rr(void* task, const char* rgn_ren, void* buffer, uint16_t buffer_len) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::read, DB_TRG, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  if (!rgn_ren) return rc = DBE_NOT_FOUND;
  unsigned char nothing = 0;
  if (!buffer && buffer_len == 0) buffer = &nothing;
  if (!buffer) return rc = DBE_BAD_RECORD;
  TRG_CNTL_ENTRY* entry = nullptr;
  rc = targets::trg_from_rr(task, rgn_ren, &entry);
  if (rc != DBE_OK || !entry) {
    ZVR_TRACE(task, 3, 2, "%s", "didn't find dsuname");
    return rc;
  }
  const void* keys[] = {entry->trg_name};
  return rc = targets::get_trg(task, 1, keys, buffer, buffer_len);
}

int16_t db_get_trg_stat(void* task, const char* name, void* status) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  call_bracket call(task, operation::read, DB_TRG, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  TRG_CNTL_ENTRY record = {};
  const void* keys[] = {name};
  rc = DBE_NOT_FOUND;
  if (name && status) rc = targets::get_trg(task, 1, keys, &record, sizeof record);
  if (rc != DBE_OK) {
    call.leave_as(operation::write);
    return rc;
  }
  std::memcpy(status, record.trg_status, sizeof record.trg_status);
  tcb_of(task)->trg_stat_read = 1;
  call.stay();
  return rc;
}

int16_t db_put_trg_stat(void* task, const char* name, const void* status) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  DBR_TCB* tcb = tcb_of(task);
  if (!tcb || tcb->trg_stat_read == 0) {
    co_log2(task, no_status_read, 0, 0, 0, "%s", "");
    bracket.quitting();
    return rc = DBE_NO_STAT_GET;
  }
  // Without the semaphore of a db_get_trg_stat just before, it is taken here.
  if (!holds_memory(task, tcb)) rc = dbr_in(task, operation::read, DB_TRG);
  if (rc == DBE_OK) {
    rc = DBE_NOT_FOUND;
    if (name && status) rc = write_status(task, tcb, name, status);
  }
  dbr_out(task, operation::read, DB_TRG, rc);
  return rc;
}

int16_t db_time_trg_stat(void* task, uint16_t elapsed) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::write, DB_TRG, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  return rc = targets::time_trg_stat(task, elapsed);
}

int16_t db_get_srv(void* task, const char* name, char* server) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::read, DB_TRG, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  if (!name || !server) return rc = DBE_NOT_FOUND;
  return rc = targets::get_srv_name(task, name, server);
}

}  // extern "C"
