#include "recfile/crash_repair.h"

#include "memory/trace.h"
#include "recfile/file_table.h"
#include "recfile/journal_choice.h"
#include "recfile/storage_messages.h"
#include "recfile/use_ledger.h"

namespace zvrdb::recfile {
namespace {

constexpr int free_the_chain = 1;  // mode of transend

bool clear_flag(void* task, engine::PSP* psp, unsigned index, const char* path, char access) {
  if (engine::_bopen(psp, path, access, 2, journal_choice(task)) != engine::e_ok) return false;
  note_taken_back(task, psp, index);
  ZVR_TRACE(task, 2, 2, "Resetting write in progress flag");
  const int cleared = engine::clrwrit(psp);
  ZVR_TRACE(task, 1, 2, "clrwrit returned %d", cleared);
  const int closed = engine::cclose(psp);
  ZVR_TRACE(task, 1, 2, "cclose returned %d", closed);
  if (engine::checkpsp(psp) == 'O') engine::abandon(psp);
  return cleared == engine::e_ok;
}

}  // namespace

void clear_flag_alone(void* task, engine::PSP* psp, unsigned index, const char* path) {
  clear_flag(task, psp, index, path, 'E');
}

void note_taken_back(void* task, const engine::PSP* psp, unsigned index) {
  if (!engine::took_back_transaction(psp)) return;
  ZVR_TRACE(task, 4, 2, "Interrupted transaction of file %s: taken out of its journal", file_at(index).name);
  static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb)->undone_ids |= 1u << index;
}

bool clear_flag_beside_live_users(void* task, engine::PSP* psp, unsigned index, const char* path) {
  const auto* cntl = static_cast<const DBR_CNTL*>(co_croca(task, CO_AREA_DBR_CNTL));
  const std::uint32_t users = known_users(task, index);
  if (users == 0 || users != cntl->files[index].use_count) return false;
  return clear_flag(task, psp, index, path, 'S');
}

int end_interrupted_transaction(void* task, engine::PSP* psp, unsigned index, int state) {
  const char* name = file_at(index).name;
  if (state == engine::e_trans_interrupted) {
    static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb)->undone_ids |= 1u << index;
    const int code = engine::transroll(psp, nullptr, 0, nullptr);
    ZVR_TRACE(task, 4, 2, "Interrupted transaction of file %s: transroll returned %d", name, code);
    return code;
  }
  if (state == engine::e_trans_empty) {
    ZVR_TRACE(task, 4, 2, "TRANSALLOC branch found for file %s", name);
    const int code = engine::transend(psp, free_the_chain);
    ZVR_TRACE(task, 1, 2, "transend returned %d", code);
    return code;
  }
  return state;
}

std::int16_t repair_open_files(void* task) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  auto* tcb = static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb);
  for (unsigned index = 0; index < file_count; ++index) {
    const file_entry& entry = tcb->files[index];
    const file_spec& spec = file_at(index);
    // A transaction of this task's own is alive, not left behind.
    if (!entry.iocb || tcb->trans_active[spec.list_id] == 1) continue;
    int state = engine::transstat(entry.psp);
    if (state == engine::e_ok || state == engine::e_trans_busy) continue;
    if (state == engine::e_write_flag) {
      ZVR_TRACE(task, 4, 2, "Clearing the write flag that a dead task left in %s", spec.name);
      if (engine::clrwrit(entry.psp) == engine::e_ok) state = engine::transstat(entry.psp);
    }
    const int ended = end_interrupted_transaction(task, entry.psp, index, state);
    if (ended == engine::e_ok || ended == engine::e_trans_busy) continue;
    issue_err_msg(task, spec.name, static_cast<std::int16_t>(ended), at_transroll);
    reopen_after_failure(task, index);
    if (!entry.iocb) rc = DBE_IO_ERROR;
  }
  return rc;
}

}  // namespace zvrdb::recfile
