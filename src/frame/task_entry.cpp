#include <atomic>
#include <cstdlib>

#include "frame/dispatch.h"
#include "frame/entry.h"
#include "frame/shared_memory.h"
#include "memory/name_hints.h"
#include "memory/trace.h"
#include "recfile/recfile.h"
#include "tasklaunch/version.h"
#include "textrec/parsed_files.h"

namespace zvrdb::frame {
namespace {

static_assert(sizeof(DBR_CNTL) <= CO_AREA_DBR_CNTL_SIZE);

constexpr const char* semaphore_names[2] = {"DBRFILE", "DBR_MEM"};
constexpr std::uint32_t died_in_transaction = 2;
constexpr int least_sync_frequency = 20;
constexpr int default_sync_frequency = 1000;

// Of this process.  Both are read and traced and steer nothing: the engine flushes by
// rules of its own.
std::atomic<std::int32_t> sync_freq = 0;
std::atomic<std::int32_t> sync_count = 0;

void read_sync_frequency(void* task) {
  if (sync_freq.load(std::memory_order_relaxed) == 0) {
    sync_freq = sync_frequency_of(std::getenv("cindex_sync_freq"));
    if (sync_freq < 0) ZVR_TRACE(task, 5, 2, "%s", "Warning: using fsync() countinuosly ");
  }
  ZVR_TRACE(task, 1, 2, "sync() count=(%d) frequency=(%d)", sync_count.load(), sync_freq.load());
}

bool owns(void* task, const DBR_TCB* tcb, std::uint16_t sem_index) {
  return tcb->sema4[sem_index] != 0 && co_lock_sema4(task, tcb->sema4[sem_index]) != 0;
}

std::int16_t refuse_other_class(void* task, std::uint16_t sem_index) {
  ZVR_TRACE(task, 4, 2, "start_trans in progress for sem_index %hu", sem_index);
  co_log2(task, 36457, 0, 0, 0, "%s", "");
  return DBE_TRANS_IN_PROGRESS;
}

// Takes the semaphore of the class, unless a transaction holds it already.
std::int16_t take_semaphore(void* task, DBR_TCB* tcb, std::uint16_t sem_index) {
  if (!open_semaphore(task, tcb, sem_index)) return DBE_INIT_FAILED;
  if (tcb->trans_in_prog[sem_index] != 0) return DBE_OK;
  if (tcb->trans_in_prog[1 - sem_index] != 0) return refuse_other_class(task, sem_index);
  const std::uint32_t handle = tcb->sema4[sem_index];
  if (sem_index == file_class && owns(task, tcb, memory_class)) {
    // Whoever holds "DBR_MEM" must not wait for "DBRFILE": its owner may be waiting
    // for "DBR_MEM".
    return co_try_sema4(task, handle) ? static_cast<std::int16_t>(DBE_OK)
                                      : refuse_other_class(task, sem_index);
  }
  if (co_req_sema4(task, handle, 0) != CO_OK) return DBE_INIT_FAILED;
  if (sem_index != memory_class) return DBE_OK;
  const std::uint32_t death = co_sema4_death(task, handle);
  // Noted where it lasts, in case this very call does not come as far as the repair.
  if (death == died_in_transaction) tcb->cntl->fwrite_in_prog = 1;
  if (death != 0) repair_files(task);
  return DBE_OK;
}

// Opening the files and counting their users belongs to "DBR_MEM", which a first call
// of class 0 takes for just that long, behind its own semaphore.
std::int16_t first_init_db(void* task, DBR_TCB* tcb, std::uint16_t sem_index) {
  if (sem_index == memory_class) return init_db(task);
  if (!open_semaphore(task, tcb, memory_class)) return DBE_INIT_FAILED;
  if (co_req_sema4(task, tcb->sema4[memory_class], 0) != CO_OK) return DBE_INIT_FAILED;
  const std::int16_t rc = init_db(task);
  // This class may not begin a generation: the next call of class 1 does.
  if (take_undone(task, tcb)) tcb->cntl->fwrite_in_prog = 1;
  co_clear_sema4(task, tcb->sema4[memory_class]);
  return rc;
}

// A writer died: its transaction is rolled back, its files are cleared, and what it
// left half done in memory is thrown away with the generation.
void recover_from_dead_writer(void* task) {
  co_log2(task, 36356, 0, 0, 0, "%s", "");
  repair_files(task);
  tcb_of(task)->undone_ids = 0;  // goes with the generation
  memory::raise_generation(task);
}

std::int16_t enter_memory_class(void* task, DBR_TCB* tcb, operation op) {
  DBR_CNTL* cntl = tcb->cntl;
  recfile::reopen_lost_files(task);
  if (cntl->fwrite_in_prog == 1)
    recover_from_dead_writer(task);
  else if (take_undone(task, tcb))
    memory::raise_generation(task);  // a task died in a transaction that no longer held the semaphore
  const std::int16_t rc = enter_memory(task, tcb);
  if (rc != DBE_OK) return rc;
  cntl->fwrite_in_prog = 0;
  cntl->finitialized = 1;
  ZVR_TRACE(task, 1, 2, "%s", "finitialized set to TRUE");
  if (op == operation::write) {
    cntl->fwrite_in_prog = 1;
    tcb->write_marked = 1;
    ZVR_TRACE(task, 1, 2, "%s", "Setting fwrite_in_prog to TRUE");
  }
  return rc;
}

// A task that died while it replaced a text record left the flag at 0.
std::int16_t enter_file_class(void* task, DBR_TCB* tcb) {
  if (tcb->cntl->fparsed_ok == 0) {
    const std::int16_t rc = textrec::refresh_parsed(task);
    if (rc != DBE_OK) return rc;
    tcb->cntl->fparsed_ok = 1;
  }
  return attach_memory(task, tcb);
}

std::int16_t enter(void* task, DBR_TCB* tcb, operation op, std::uint32_t db_id, bool first_use) {
  const auto sem_index = static_cast<std::uint16_t>(type_row(db_id).sem_index);
  tcb->sem_index = sem_index;
  std::int16_t rc = take_semaphore(task, tcb, sem_index);
  if (rc == DBE_OK && first_use) rc = first_init_db(task, tcb, sem_index);
  if (rc != DBE_OK) return rc;
  rc = sem_index == file_class ? enter_file_class(task, tcb) : enter_memory_class(task, tcb, op);
  if (rc == DBE_OK && op == operation::write) ++tcb->cntl->gen[db_id];
  return rc;
}

}  // namespace

DBR_TCB* make_tcb(void* task) {
  tasklaunch::db_ver_reg(task);
  auto* tcb = static_cast<DBR_TCB*>(co_malloc(task, sizeof(DBR_TCB), CO_MEM_PRIVATE, "DBR__TCB"));
  if (tcb) {
    tcb->cntl = static_cast<DBR_CNTL*>(co_croca(task, CO_AREA_DBR_CNTL));
    tcb->start_trans_id = no_trans_id;
    if (tcb->cntl) {
      co_slots(task)->dbr_tcb = tcb;
      return tcb;
    }
    co_free_int(task, tcb, "dbr_in");
  }
  co_log2(task, 36355, 0, 0, 0, "%s", "DBR_TCB");
  return nullptr;
}

void take_down(void* task, DBR_TCB* tcb) {
  das_exit(task, 0);
  drop_memory(task, tcb);
  for (std::uint16_t sem_index = 0; sem_index < 2; ++sem_index)
    if (tcb->sema4[sem_index] != 0) co_clear_sema4(task, tcb->sema4[sem_index]);
  if (tcb->piece_area) co_free_int(task, tcb->piece_area, "dbr_in");
  if (tcb->scratch) co_free_int(task, tcb->scratch, "dbr_in");
  if (tcb->image) co_free_int(task, tcb->image, "dbr_in");
  memory::free_hints(task, tcb);
  co_slots(task)->dbr_tcb = nullptr;
  co_free_int(task, tcb, "dbr_in");
}

void repair_files(void* task) {
  recfile::reap_dead_use_counts(task);
  const std::int16_t rc = recfile::repair_open_files(task);
  ZVR_TRACE(task, 4, 2, "repair_open_files returned %hx", static_cast<unsigned short>(rc));
}

std::int32_t sync_frequency_of(const char* text) {
  if (!text) return -1;
  const int value = std::atoi(text);
  return value < least_sync_frequency ? default_sync_frequency : value;
}

bool open_semaphore(void* task, DBR_TCB* tcb, std::uint16_t sem_index) {
  if (tcb->sema4[sem_index] != 0) return true;
  co_open_sema4(task, semaphore_names[sem_index], &tcb->sema4[sem_index], 0, 1);
  return tcb->sema4[sem_index] != 0;
}

std::int16_t dbr_in(void* task, operation op, std::uint32_t db_id) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  co_task_slots* slots = co_slots(task);
  if (!slots) return rc = DBE_INIT_FAILED;
  if (slots->in_das == 0) co_hold_events(task);
  slots->in_das = 1;
  if (db_id >= DB_TYPE_COUNT) {
    bracket.quitting();
    co_log2(task, 36366, 0, 0, 0, "%hd", static_cast<short>(db_id));
    return rc = DBE_BAD_DB_ID;
  }
  const bool first_use = slots->dbr_tcb == nullptr;
  DBR_TCB* tcb = first_use ? make_tcb(task) : tcb_of(task);
  if (!tcb) {
    bracket.quitting();
    return rc = DBE_INIT_FAILED;
  }
  tcb->write_marked = 0;
  read_sync_frequency(task);
  rc = enter(task, tcb, op, db_id, first_use);
  if (rc != DBE_OK) {
    bracket.quitting();
    if (first_use) take_down(task, tcb);
  }
  return rc;
}

}  // namespace zvrdb::frame
