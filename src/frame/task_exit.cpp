#include "frame/dispatch.h"
#include "frame/entry.h"
#include "frame/shared_memory.h"
#include "memory/trace.h"
#include "recfile/recfile.h"

namespace zvrdb::frame {
namespace {

// The tables of a generation that this task raised are built by it, and not by the next
// call: that may be one of class 0, which only waits for them.  A failure is met again by
// the next call of class 1.
void build_raised(void* task, DBR_TCB* tcb) {
  if (!tcb->shm_base || tcb->shm_generation == tcb->cntl->shm_generation) return;
  const std::int16_t rc = enter_memory(task, tcb);
  ZVR_TRACE(task, 4, 2, "enter_memory of a raised generation returned %hx", static_cast<unsigned short>(rc));
}

const char* semaphore_kind(std::uint16_t sem_index) {
  return sem_index == file_class ? "file" : "mem";
}

// Ends a call of a task that may own the semaphore of its class.
void leave(void* task, DBR_TCB* tcb, operation op, std::uint32_t db_id) {
  const auto sem_index = static_cast<std::uint16_t>(type_row(db_id).sem_index);
  const std::uint32_t handle = tcb->sema4[sem_index];
  if (handle == 0 || co_lock_sema4(task, handle) == 0) return;
  if (sem_index == memory_class) {
    if (take_undone(task, tcb)) memory::raise_generation(task);
    build_raised(task, tcb);
    tcb->changed_before = tcb->changed_files;
    if (op == operation::write) {
      // The mark before the flag: a task killed between the two is a dead writer still.
      co_mark_sema4(task, handle, tcb->trans_in_prog[memory_class]);
      if (tcb->write_marked != 0) tcb->cntl->fwrite_in_prog = 0;
      tcb->write_marked = 0;
      ZVR_TRACE(task, 1, 2, "%s", "Setting fwrite_in_prog to FALSE");
    }
  }
  if (tcb->trans_in_prog[sem_index] != 0) return;
  ZVR_TRACE(task, 1, 2, "Releasing sema4 of type %s", semaphore_kind(sem_index));
  if (op == operation::write) {
    const std::int16_t rc = recfile::db_bflush(task, db_id);
    if (rc != DBE_OK)
      ZVR_TRACE(task, 5, 2, "db_bflush() returned error %hx, changing function rc",
                static_cast<unsigned short>(rc));
  }
  co_clear_sema4(task, handle);
}

// Takes "DBR_MEM" for closing the files, unless this task has it.  True when taken.
bool take_for_exit(void* task, DBR_TCB* tcb) {
  if (!open_semaphore(task, tcb, memory_class)) return false;
  if (co_slots(task)->in_das == 0) {
    tcb->sem_index = memory_class;
  } else if (co_lock_sema4(task, tcb->sema4[memory_class]) != 0) {
    ZVR_TRACE(task, 2, 2, "%s", "This task already owns DAS MEM semaphore");
    return false;
  }
  if (tcb->trans_in_prog[memory_class] != 0) return false;
  return co_req_sema4(task, tcb->sema4[memory_class], 0) == CO_OK;
}

void close_files(void* task, DBR_TCB* tcb) {
  for (file_entry& entry : tcb->files) {
    if (!entry.iocb) continue;
    // The count of this task, however often it opened the file.
    entry.use_count = 1;
    const unsigned long db_id = entry.iocb->db_id;
    const std::int16_t rc = recfile::db_close(task, &entry);
    if (rc != DBE_OK)
      ZVR_TRACE(task, 5, 2, "db_close returned %hu for db_id %lu", static_cast<unsigned short>(rc), db_id);
  }
}

}  // namespace

void dbr_out(void* task, operation op, std::uint32_t db_id, std::int16_t rc) {
  const trace_bracket bracket(task, __func__);
  co_task_slots* slots = co_slots(task);
  if (!slots) return;
  auto* tcb = static_cast<DBR_TCB*>(slots->dbr_tcb);
  if (!tcb)
    bracket.quitting();
  else if (db_id < DB_TYPE_COUNT)
    leave(task, tcb, op, db_id);
  if (tcb && rc == DBE_CO_FAILURE) co_log2(task, 36392, 0, 0, 0, "%s", "");
  const bool held = slots->in_das != 0;
  slots->in_das = 0;
  if (held) co_release_events(task);
}

std::int16_t init_db(void* task) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  co_reg_exit(task, das_exit);
  rc = recfile::open_files(task);
  if (rc != DBE_OK) bracket.quitting();
  return rc;
}

void das_exit(void* task, std::uint32_t reason) {
  const trace_bracket bracket(task, __func__);
  DBR_TCB* tcb = tcb_of(task);
  ZVR_TRACE(task, 2, 2, "entering with reason = %lu, in_das = %s ", static_cast<unsigned long>(reason),
            co_slots(task)->in_das ? "TRUE" : "FALSE");
  if (!tcb) {
    ZVR_TRACE(task, 2, 2, "%s", "DBR_TCB is a NULL pointer");
    bracket.quitting();
    return;
  }
  const bool taken = take_for_exit(task, tcb);
  const bool owned = tcb->sema4[memory_class] != 0 && co_lock_sema4(task, tcb->sema4[memory_class]) != 0;
  // Before the files are closed, for the tables are built from them.
  recfile::rollback_all(task);
  if (take_undone(task, tcb)) memory::raise_generation(task);
  if (owned) build_raised(task, tcb);
  close_files(task, tcb);
  // What could not be counted to the end is counted by whoever builds the next generation.
  if (take_undone(task, tcb) || tcb->undone_ids != 0) memory::raise_generation(task);
  if (owned) co_mark_sema4(task, tcb->sema4[memory_class], 0);
  if (taken) co_clear_sema4(task, tcb->sema4[memory_class]);
}

}  // namespace zvrdb::frame
