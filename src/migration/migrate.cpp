// The exported calls, and the order of the stages.
#include <cstring>
#include <iterator>

#include "frame/entry.h"
#include "frame/shared_memory.h"
#include "memory/trace.h"
#include "migration/conversion.h"
#include "migration/field_copy.h"
#include "migration/private_table.h"
#include "recfile/recfile.h"
#include "textrec/parsed_files.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t max_targets_at = 4268;  // of the base configuration
constexpr std::uint16_t file_class = 0;
constexpr std::uint16_t memory_class = 1;

using stage_function = std::int16_t (*)(conversion& run);
constexpr stage_function stages[] = {db_mig_cat, db_mig_trg, db_mig_cms, db_mig_tg, db_mig_apr, add_remote};
static_assert(std::size(stages) == DB_MIG_STAGES);

std::int16_t run_stages(conversion& run) {
  std::int16_t result = DBE_OK;
  for (run.stage = 0; run.stage < DB_MIG_STAGES; ++run.stage) {
    const std::int16_t rc = stages[run.stage](run);
    if (run.watcher) {
      const db_mig_event event = {DB_MIG_END, run.stage, 0, 0, rc, nullptr};
      run.watcher(run.context, &event);
    }
    if (rc == DBE_OK) continue;
    if (result == DBE_OK) result = rc;
    // A rehearsal tells of everything that stands in the way.
    if (!run.dry_run) break;
  }
  return result;
}

bool take_both(const conversion& run) {
  for (const std::uint16_t sem_index : {file_class, memory_class}) {
    if (!frame::open_semaphore(run.task, run.tcb, sem_index)) return false;
    if (co_req_sema4(run.task, run.tcb->sema4[sem_index], 0) != CO_OK) return false;
  }
  if (co_sema4_death(run.task, run.tcb->sema4[memory_class]) != 0) frame::repair_files(run.task);
  return true;
}

void release_both(const conversion& run) {
  for (const std::uint16_t sem_index : {file_class, memory_class})
    if (run.tcb->sema4[sem_index] != 0) co_clear_sema4(run.task, run.tcb->sema4[sem_index]);
}

// The tables that other tasks have in memory are of before: whoever comes next, after a
// kill in the middle too, builds them anew.
void run_changing(conversion& run, std::int16_t* rc) {
  DBR_CNTL* cntl = run.tcb->cntl;
  cntl->fwrite_in_prog = 1;
  *rc = run_stages(run);
  free_table(run);
  memory::raise_generation(run.task);
  cntl->fwrite_in_prog = 0;
}

std::int16_t run_locked(conversion& run) {
  co_reg_exit(run.task, frame::das_exit);
  recfile::reap_dead_use_counts(run.task);
  frame::drop_memory(run.task, run.tcb);
  run.tcb->sem_index = file_class;  // of "orvo.cfg", the one text that is written
  const auto* config = static_cast<const unsigned char*>(co_croca(run.task, CO_AREA_CONFIG));
  if (!config) return DBE_IO_ERROR;
  run.max_targets = load_u32(config + max_targets_at);
  if (run.dry_run) return run_stages(run);
  std::int16_t rc = DBE_OK;
  run.tcb->cntl->num_trgs_allowed = run.max_targets;
  textrec::refresh_parsed(run.task);
  run_changing(run, &rc);
  return rc;
}

std::int16_t run_in_task(conversion& run) {
  std::int16_t rc = DBE_IO_ERROR;
  if (take_both(run)) rc = run_locked(run);
  release_both(run);
  return rc;
}

// With the marks that a call has around it: events held back, the exit function told.
std::int16_t convert(void* task, std::uint32_t options, db_mig_watcher watcher, void* context) {
  co_task_slots* slots = co_slots(task);
  if (!slots) return DBE_INIT_FAILED;
  conversion run = {};
  run.task = task;
  run.dry_run = (options & DB_MIG_DRY_RUN) != 0;
  run.watcher = watcher;
  run.context = context;
  DBR_TCB* before = frame::tcb_of(task);
  // Inside a call, or between db_get_trg_stat and db_put_trg_stat.
  const bool inside = slots->in_das != 0;
  if (inside || (before && (before->trans_in_prog[file_class] != 0 || before->trans_in_prog[memory_class] != 0)))
    return DBE_TRANS_IN_PROGRESS;
  co_hold_events(task);
  slots->in_das = 1;
  // A file that this task has open may be removed and made again. With a block of its own
  // the conversion opens what it needs, and the task's next call opens as a first call does.
  if (before) frame::take_down(task, before);
  run.tcb = frame::make_tcb(task);
  const std::int16_t rc = run.tcb ? run_in_task(run) : static_cast<std::int16_t>(DBE_IO_ERROR);
  if (run.tcb) frame::take_down(task, run.tcb);
  slots->in_das = 0;
  co_release_events(task);
  return rc;
}

}  // namespace
}  // namespace zvrdb::migration

extern "C" {

int16_t db_mig_watched(void* task, uint32_t options, db_mig_watcher watcher, void* context) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const zvrdb::trace_bracket bracket(task, __func__, &rc);
  return rc = zvrdb::migration::convert(task, options, watcher, context);
}

int16_t db_mig_das(void* task) {
  return db_mig_watched(task, 0, nullptr, nullptr);
}

}  // extern "C"
