// Transactions on one file: explicit ones of a client, internal ones of a handler,
// and the implicit one of a single record operation.
#include <algorithm>
#include <array>
#include <span>

#include "engine/engine.h"
#include "memory/record_types.h"
#include "memory/trace.h"
#include "recfile/crash_repair.h"
#include "recfile/file_table.h"
#include "recfile/storage_messages.h"
#include "recfile/transaction_state.h"

namespace zvrdb::recfile {
namespace {

constexpr int plain_transaction = 3;
constexpr int free_the_chain = 1;
constexpr std::uint16_t memory_class = 1;  // every record with a file is of this class

// Record types that share a file and are flagged together.  Others that share one
// (9 with 26 and 27, 23 with 24 and 25) are not grouped.
constexpr std::uint32_t target_types[] = {4, 5, 11, 32};
constexpr std::uint32_t request_types[] = {17, 18, 19, 20, 21, 30};
constexpr std::uint32_t correlator_types[] = {28, 29};
constexpr std::array<std::span<const std::uint32_t>, 3> shared_types = {target_types, request_types,
                                                                        correlator_types};

DBR_TCB* tcb_of(void* task) {
  return static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb);
}

void flag_types(DBR_TCB* tcb, std::uint32_t db_id, std::uint16_t value) {
  if (db_id >= DB_TYPE_COUNT) return;
  for (const auto& group : shared_types) {
    if (std::find(group.begin(), group.end(), db_id) == group.end()) continue;
    for (const std::uint32_t id : group) tcb->trans_active[id] = value;
    return;
  }
  tcb->trans_active[db_id] = value;
}

void forget_changes(DBR_TCB* tcb, unsigned index) {
  tcb->changed_files &= ~(1u << index);
  tcb->changed_before &= ~(1u << index);
}

// After a transaction has ended, well or badly.
void transaction_over(void* task, DBR_TCB* tcb, std::uint32_t db_id) {
  if (tcb->start_trans_id == db_id) tcb->trans_in_prog[memory_class] = 0;
  reset_trans_active(task, db_id);
  const int index = file_index(db_id);
  if (index >= 0) forget_changes(tcb, static_cast<unsigned>(index));
}

// The handle is taken to have gone stale: the file is closed and opened again.
std::int16_t begin_on_fresh_handle(void* task, DBR_TCB* tcb, std::uint32_t db_id, const iocb* block) {
  file_entry** field = handle_field(tcb, db_id);
  std::int16_t rc = db_close(task, *field);
  if (rc != DBE_OK) return rc;
  file_entry* handle = nullptr;
  rc = db_open(task, db_id, &handle);
  if (rc != DBE_OK) return rc;
  *field = handle;
  const int code = engine::transbeg(handle->psp, plain_transaction, nullptr);
  if (code == engine::e_ok) return DBE_OK;
  issue_err_msg(task, block->name, static_cast<std::int16_t>(code), at_transbeg);
  return DBE_IO_ERROR;
}

bool rolled_back(int code) {
  return code == engine::e_ok || code == engine::e_trans_none;
}

// What an operation that could not finish leaves on the disk: opening the file clears
// both.
bool left_behind(int code) {
  return code == engine::e_write_flag || code == engine::e_trans_interrupted;
}

// After some failures nobody knows what the file holds: memory is built from it.  A file
// that was lost is followed when it can be opened again.
void follow_file(DBR_TCB* tcb, unsigned index) {
  if (tcb->files[index].iocb) tcb->undone_ids |= 1u << index;
}

// Undoes the engine's transaction.  A handle that cannot do so is opened anew.
int undo(void* task, unsigned index, engine::PSP* psp) {
  const int code = engine::transroll(psp, nullptr, 0, nullptr);
  ZVR_TRACE(task, 4, 2, "transroll of %s returned %d", file_at(index).name, code);
  if (rolled_back(code)) return code;
  // The opening undoes what this handle could not, unless the handle had begun: then what
  // it did not come to stays in the file.
  reopen_after_failure(task, index);
  follow_file(tcb_of(task), index);
  return code;
}

// Ends the engine's transaction for good; when that fails it is rolled back, and `doubtful` if it
// may have ended before the failure.
std::int16_t end_or_undo(void* task, DBR_TCB* tcb, unsigned index, engine::PSP* psp, bool doubtful) {
  const int code = engine::transend(psp, free_the_chain);
  if (code == engine::e_ok) return DBE_OK;
  issue_err_msg(task, file_at(index).name, static_cast<std::int16_t>(code), at_transend);
  note_undone(tcb, index);
  undo(task, index, psp);
  if (doubtful) follow_file(tcb, index);
  return DBE_IO_ERROR;
}

enum class ending { keep, undo };

std::int16_t end_transaction(void* task, std::uint32_t db_id, ending how) {
  iocb* block = nullptr;
  file_entry* entry = nullptr;
  std::int16_t rc = get_file_ptr(task, &block, &entry, db_id);
  if (rc != DBE_OK) {
    memory::log_db_msg(task, how == ending::keep ? 36431 : 36432, db_id);
    return rc;
  }
  DBR_TCB* tcb = tcb_of(task);
  if (tcb->trans_active[db_id] == 0 || !entry->iocb) {
    ZVR_TRACE(task, 3, 2, "called with no transaction active for db_id %lu, returning OK",
              static_cast<unsigned long>(db_id));
    transaction_over(task, tcb, db_id);
    return DBE_OK;
  }
  const auto index = static_cast<unsigned>(file_index(db_id));
  if (how == ending::keep) {
    rc = end_or_undo(task, tcb, index, entry->psp, true);
  } else {
    note_undone(tcb, index);
    const int code = undo(task, index, entry->psp);
    if (!rolled_back(code)) {
      issue_err_msg(task, block->name, static_cast<std::int16_t>(code), at_transroll);
      rc = DBE_IO_ERROR;
    }
  }
  transaction_over(task, tcb, db_id);
  return rc;
}

}  // namespace

void set_trans_active(void* task, std::uint32_t db_id) {
  flag_types(tcb_of(task), db_id, 1);
}
void reset_trans_active(void* task, std::uint32_t db_id) {
  flag_types(tcb_of(task), db_id, 0);
}

void note_change(DBR_TCB* tcb, unsigned index) {
  tcb->changed_files |= 1u << index;
}
void note_undone(DBR_TCB* tcb, unsigned index) {
  tcb->undone_ids |= tcb->changed_before & (1u << index);
}

std::int16_t start_trans(void* task, std::uint32_t db_id) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  iocb* block = nullptr;
  file_entry* entry = nullptr;
  rc = get_file_ptr(task, &block, &entry, db_id);
  if (rc != DBE_OK) {
    bracket.quitting();
    memory::log_db_msg(task, 36430, db_id);
    return rc;
  }
  DBR_TCB* tcb = tcb_of(task);
  if (tcb->trans_active[db_id] == 1) {
    ZVR_TRACE(task, 3, 2, "called with transaction active for db_id %lu, returning OK",
              static_cast<unsigned long>(db_id));
    return rc;
  }
  const auto index = static_cast<unsigned>(file_index(db_id));
  int code = entry->iocb ? engine::transbeg(entry->psp, plain_transaction, nullptr) : engine::e_bad_handle;
  if (left_behind(code)) {
    // Its close would be refused for the same reason.
    reopen_after_failure(task, index);
    if (entry->iocb) code = engine::transbeg(entry->psp, plain_transaction, nullptr);
  }
  if (code != engine::e_ok) {
    rc = begin_on_fresh_handle(task, tcb, db_id, block);
    if (rc != DBE_OK) {
      bracket.quitting();
      return rc;
    }
  }
  // Only the transaction that the client named keeps the semaphore over calls.
  if (tcb->start_trans_id == db_id) tcb->trans_in_prog[memory_class] = 1;
  set_trans_active(task, db_id);
  forget_changes(tcb, index);
  return rc;
}

std::int16_t commit(void* task, std::uint32_t db_id) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = end_transaction(task, db_id, ending::keep);
}

std::int16_t rollback(void* task, std::uint32_t db_id) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = end_transaction(task, db_id, ending::undo);
}

namespace {

// The two ended at once; false when they have to be ended one by one.
bool ended_at_once(void* task, const open_file& first, const open_file& second, std::int16_t* rc) {
  engine::PSP* const a = first.entry->psp;
  engine::PSP* const b = second.entry->psp;
  if (!engine::can_end_together(a, b)) return false;
  const int code = engine::transend_together(a, b, free_the_chain);
  if (code == engine::e_ok) return true;
  *rc = DBE_IO_ERROR;
  for (const open_file& file : {first, second}) {
    issue_err_msg(task, file.spec->name, static_cast<std::int16_t>(code), at_transend);
    note_undone(file.tcb, file.index);
    undo(task, file.index, file.entry->psp);
    follow_file(file.tcb, file.index);
  }
  return true;
}

bool is_in_transaction(void* task, std::uint32_t db_id, open_file* file) {
  iocb* block = nullptr;
  file_entry* entry = nullptr;
  return get_file_ptr(task, &block, &entry, db_id) == DBE_OK && tcb_of(task)->trans_active[db_id] != 0 &&
         find_open(task, entry, file);
}

}  // namespace

both_ends end_both(void* task, std::uint32_t first_id, std::uint32_t second_id, std::int16_t rc) {
  const trace_bracket bracket(task, __func__, &rc);
  if (rc != DBE_OK && rc != DBE_RECORD_REPLACED) {
    rollback(task, first_id);
    rollback(task, second_id);
    return {rc, rc};
  }
  open_file first;
  open_file second;
  if (is_in_transaction(task, first_id, &first) && is_in_transaction(task, second_id, &second) &&
      ended_at_once(task, first, second, &rc)) {
    transaction_over(task, first.tcb, first_id);
    transaction_over(task, second.tcb, second_id);
    return {rc, rc};
  }
  both_ends ended = {commit(task, first_id), DBE_IO_ERROR};
  if (ended.first == DBE_OK)
    ended.second = commit(task, second_id);
  else
    rollback(task, second_id);
  if (ended.first == DBE_OK) ended.first = rc;
  if (ended.second == DBE_OK) ended.second = rc;
  return ended;
}

void rollback_all(void* task) {
  const trace_bracket bracket(task, __func__);
  for (unsigned index = 0; index < file_count; ++index) {
    const std::uint32_t db_id = file_at(index).list_id;
    if (tcb_of(task)->trans_active[db_id] != 0) rollback(task, db_id);
  }
}

std::int16_t begin_implicit(void* task, const open_file& file, implicit_transaction* transaction) {
  *transaction = {};
  if (file.tcb->trans_active[file.spec->list_id] != 0) {
    note_change(file.tcb, file.index);
    return DBE_OK;
  }
  // Its operations are one call: nobody comes between, and they cost the system less.
  engine::begin_call(file.entry->psp);
  int code = engine::transbeg(file.entry->psp, plain_transaction, nullptr);
  if (left_behind(code)) {
    engine::end_call(file.entry->psp);
    transaction->reopened = true;
    reopen_after_failure(task, file.index);
    if (file.entry->iocb) code = engine::transbeg(file.entry->psp, plain_transaction, nullptr);
  }
  if (code != engine::e_ok) {
    if (file.entry->iocb) engine::end_call(file.entry->psp);
    issue_err_msg(task, file.spec->name, static_cast<std::int16_t>(code), at_transbeg);
    return DBE_IO_ERROR;
  }
  set_trans_active(task, file.spec->list_id);
  transaction->owned = true;
  return DBE_OK;
}

std::int16_t end_implicit(void* task, const open_file& file, const implicit_transaction& transaction,
                          std::int16_t rc) {
  if (!transaction.owned) return rc;
  if (rc == DBE_OK) {
    // What a journal refuses never was.
    const bool doubtful = !engine::has_journal(file.entry->psp);
    rc = end_or_undo(task, file.tcb, file.index, file.entry->psp, doubtful);
  } else {
    undo(task, file.index, file.entry->psp);
  }
  // All it did was flushed, or undone.
  if (file.entry->iocb) engine::end_call(file.entry->psp);
  reset_trans_active(task, file.spec->list_id);
  return rc;
}

std::int16_t db_bflush(void* task, std::uint32_t db_id) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  // Types whose records are flushed after a write; 24 to 27, 31 and 32 are made
  // durable by the end of their transaction alone.
  constexpr std::uint32_t flushed_types[] = {4, 5, 6, 9, 10, 11, 17, 18, 19, 20, 21, 22, 23, 28, 29, 30};
  if (std::find(std::begin(flushed_types), std::end(flushed_types), db_id) == std::end(flushed_types))
    return rc;
  iocb* block = nullptr;
  file_entry* entry = nullptr;
  rc = get_file_ptr(task, &block, &entry, db_id);
  if (rc != DBE_OK) {
    bracket.quitting();
    memory::log_db_msg(task, 36429, db_id);
    return rc;
  }
  if (!entry->iocb) return rc;
  const int code = engine::dflush(entry->psp);
  if (code != engine::e_ok) {
    issue_err_msg(task, block->name, static_cast<std::int16_t>(code), at_close_or_flush);
    rc = DBE_IO_ERROR;
  }
  return rc;
}

}  // namespace zvrdb::recfile
