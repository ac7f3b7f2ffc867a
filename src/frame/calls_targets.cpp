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
  TRG_CNTL_ENTRY* entry = memory::trg_slot(tcb, memory::number_of_name(task, name));
  if (!entry) {
    const std::int64_t position = memory::locate_name(task, name);
    if (position >= 0) entry = memory::trg_slot(tcb, tcb->name_index[position].trg_index);
  }
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

// Copies the status out and notes that it was read.
std::int16_t read_status(void* task, const char* name, void* status) {
  if (!name || !status) return DBE_NOT_FOUND;
  const std::int16_t rc = targets::get_trg_status(task, name, status);
  if (rc == DBE_OK) tcb_of(task)->trg_stat_read = 1;
  return rc;
}

}  // namespace

extern "C" {

int16_t db_get_trg_index(void* task, const char* name, uint32_t* number) {
  return framed_call(task, __func__, operation::read, DB_TRG, [&]() -> std::int16_t {
    if (!name || !number) return DBE_NO_TARGET;
    return memory::get_trg_index(task, name, number);
  });
}

int16_t db_rename_trg(void* task, const char* old_name, const char* new_name) {
  return framed_call(task, __func__, operation::write, DB_TRG, [&]() -> std::int16_t {
    if (!old_name || !new_name) return DBE_NOT_FOUND;
    return targets::rename_trg(task, old_name, new_name);
  });
}

int16_t db_trg_from_rr(void* task, const char* rgn_ren, void* buffer, uint16_t buffer_len) {
  return framed_call(task, __func__, operation::read, DB_TRG, [&]() -> std::int16_t {
    if (!rgn_ren) return DBE_NOT_FOUND;
    if (!take_area(&buffer, buffer_len)) return DBE_BAD_RECORD;
    TRG_CNTL_ENTRY* entry = nullptr;
    const std::int16_t rc = targets::trg_from_rr(task, rgn_ren, &entry);
    if (rc != DBE_OK || !entry) {
      if (co_trc_test(task, 3, 2)) co_trc2(task, 3, 2, "db_trg_from_rr", "%s", "didn't find dsuname");
      return rc;
    }
    const void* keys[] = {entry->trg_name};
    return targets::get_trg(task, 1, keys, buffer, buffer_len);
  });
}

int16_t db_get_trg_stat(void* task, const char* name, void* status) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  rc = dbr_in(task, operation::read, DB_TRG);
  operation leaving = operation::read;
  if (rc != DBE_OK) {
    bracket.quitting();
  } else {
    rc = read_status(task, name, status);
    if (rc == DBE_OK) return rc;  // inside, with the semaphore
    leaving = operation::write;
  }
  dbr_out(task, leaving, DB_TRG, rc);
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
  return framed_call(task, __func__, operation::write, DB_TRG,
                     [&] { return targets::time_trg_stat(task, elapsed); });
}

int16_t db_get_srv(void* task, const char* name, char* server) {
  return framed_call(task, __func__, operation::read, DB_TRG, [&]() -> std::int16_t {
    if (!name || !server) return DBE_NOT_FOUND;
    return targets::get_srv_name(task, name, server);
  });
}

}  // extern "C"
