// Opening and closing of the record files, with what a crash left repaired on the way.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "engine/engine.h"
#include "memory/record_types.h"
#include "memory/trace.h"
#include "recfile/crash_repair.h"
#include "recfile/file_table.h"
#include "recfile/journal_choice.h"
#include "recfile/storage_messages.h"
#include "recfile/transaction_state.h"
#include "recfile/use_ledger.h"

namespace zvrdb::recfile {
namespace {

constexpr int transaction_level = 4;  // integrity level that transactions need
constexpr int unflushed_level = 0;    // nothing reaches the disk on its own

// How a file is shared with others.
enum class sharing : char { with_all = 'S', with_nobody = 'E' };
constexpr int read_write = 2;
constexpr int native_order = 3;
constexpr std::uint32_t busy_wait_ms = 60000;
// Twice the nodes of a file of 100,000 requests. Memory is used as nodes are
// read, 1.7 KiB each, and as bodies are, half a KiB each.
constexpr unsigned cache_blocks = 131072;

DBR_TCB* tcb_of(void* task) {
  return static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb);
}

// The paths of the common services have this length.
struct file_path {
  char text[CO_PATH_MAX];
};

bool build_path(void* task, const char* name, file_path* path) {
  std::memset(path->text, 0, sizeof path->text);
  if (co_get_orvo_path(task, path->text, 0) != CO_OK) return false;
  if (co_build_objname(task, path->text, "db", nullptr, CO_PATH_MAX) != CO_OK) return false;
  return co_build_objname(task, path->text, name, nullptr, CO_PATH_MAX) == CO_OK;
}

void free_handle(void* task, file_entry* entry) {
  if (entry->psp) {
    // A block that is still open would leave its descriptor and locks behind.
    if (engine::checkpsp(entry->psp) == 'O') engine::abandon(entry->psp);
    co_free_int(task, entry->psp, "db_close");
    entry->psp = nullptr;
  }
  if (entry->record_buffer) co_free_int(task, entry->record_buffer, "db_close");
  entry->record_buffer = nullptr;
}

bool allocate_handle(void* task, file_entry* entry) {
  entry->psp = static_cast<engine::PSP*>(co_malloc(task, engine::psp_size, CO_MEM_PRIVATE, "CFILE_PSP"));
  if (entry->psp)
    entry->record_buffer =
        static_cast<unsigned char*>(co_malloc(task, record_buffer_len, CO_MEM_PRIVATE, "CFILE_BUF"));
  if (entry->psp && entry->record_buffer) return true;
  free_handle(task, entry);
  co_log2(task, 36355, 0, 0, 0, "%s", "CFILE_PSP");
  return false;
}

// Opens the file, or makes it when it is not there.  0, an engine code, or
// permissions_failed when a new file could not be given its permissions.
constexpr int permissions_failed = 1;
int open_or_create(void* task, file_entry* entry, const file_spec& spec, unsigned index, const char* path,
                   sharing with) {
  const char mode = static_cast<char>(with);
  const engine::key_entry* keys = engine_keys(spec.kind);
  // A file that is thrown away should this task die needs none.
  const engine::journal_use journal =
      with == sharing::with_all ? journal_choice(task) : engine::journal_use::off;
  int code = engine::dopen(entry->psp, path, entry->record_buffer, static_cast<int>(record_buffer_len), mode,
                           read_write, keys, journal);
  if (code == engine::e_write_flag && clear_flag_beside_live_users(task, entry->psp, index, path))
    code = engine::dopen(entry->psp, path, entry->record_buffer, static_cast<int>(record_buffer_len), mode,
                         read_write, keys, journal);
  if (code != engine::e_not_found) return code;
  code = engine::dcreate(entry->psp, path, entry->record_buffer, static_cast<int>(record_buffer_len), mode,
                         native_order, keys, journal);
  if (code != engine::e_ok) return code;
  if (co_dflt_mod(task, path, 1) == CO_OK) return engine::e_ok;
  co_remove(task, path, 1);
  return permissions_failed;
}

// The journal gets the permissions of the file it belongs to.  Only its owner can give
// them, so whoever made it does, and others are refused without harm.
void share_journal(void* task, const char* path) {
  file_path journal;
  const int n = std::snprintf(journal.text, sizeof journal.text, "%s.jnl", path);
  if (n > 0 && static_cast<std::size_t>(n) < sizeof journal.text) co_dflt_mod(task, journal.text, 1);
}

// Rolls back what a dead task left in the file.  0, or the code of a transaction that
// a live task keeps open or that could not be rolled back.
int settle_transaction(void* task, engine::PSP* psp, unsigned index, const char* path) {
  if (!engine::tells_of_transaction(psp)) return engine::e_ok;   // most often, and it costs no write
  int state = engine::transstat(psp);
  if (state == engine::e_trans_busy) {
    ZVR_TRACE(task, 4, 2, "Busy transaction found for file %s, waiting for 60 secs", path);
    co_delay(task, busy_wait_ms);
    state = engine::transstat(psp);
    if (state == engine::e_trans_busy) return state;
  }
  return end_interrupted_transaction(task, psp, index, state);
}

std::int16_t open_entry(void* task, file_entry* entry, iocb* block, unsigned index,
                        sharing with = sharing::with_all) {
  const file_spec& spec = file_at(index);
  if (!allocate_handle(task, entry)) return DBE_IO_ERROR;
  file_path path;
  if (!build_path(task, spec.name, &path)) {
    free_handle(task, entry);
    return DBE_IO_ERROR;
  }
  if (block->use_count == 0) clear_flag_alone(task, entry->psp, index, path.text);
  int code = open_or_create(task, entry, spec, index, path.text, with);
  if (code != engine::e_ok) {
    if (code != permissions_failed) issue_err_msg(task, path.text, static_cast<std::int16_t>(code), at_open);
    free_handle(task, entry);
    return DBE_IO_ERROR;
  }
  note_taken_back(task, entry->psp, index);
  code = engine::csetfile(entry->psp, with == sharing::with_all ? transaction_level : unflushed_level);
  ZVR_TRACE(task, 1, 2, "csetfile returned %d", code);
  code = settle_transaction(task, entry->psp, index, path.text);
  if (code != engine::e_ok) {
    // Let go of without another write: it would make half a roll-back the truth.
    issue_err_msg(task, path.text, static_cast<std::int16_t>(code), at_transroll);
    free_handle(task, entry);
    return DBE_IO_ERROR;
  }
  if (engine::has_journal(entry->psp)) share_journal(task, path.text);
  // Where it cannot be had, reads take their locks.
  engine::read_from_cache(entry->psp, 0);
  count_open(task, index);
  entry->use_count = 1;
  entry->iocb = block;
  return DBE_OK;
}

}  // namespace

void set_datalist(void* task, std::uint32_t db_id, iocb* block, const char* name, std::uint16_t key_len) {
  const trace_bracket bracket(task, __func__);
  if (block->inited != 0) return;
  std::strncpy(block->name, name, sizeof block->name - 1);
  block->db_id = db_id;
  block->use_count = 0;
  block->max_rec_len = longest_piece;
  block->buff_len = record_buffer_len;
  const int index = file_index(db_id);
  const field_kind kind = index < 0 ? field_kind::one_key : file_at(static_cast<unsigned>(index)).kind;
  unsigned row_number = 0;
  for (field_row row : field_rows(kind)) {
    if (row.key == 1) row.length = static_cast<std::int16_t>(key_len);
    block->field_list[row_number++] = row;
  }
  // Last, so that a block half filled by a task that died is filled anew.
  block->inited = 1;
}

std::int16_t get_file_ptr(void* task, iocb** block, file_entry** entry, std::uint32_t db_id) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const int index = file_index(db_id);
  DBR_TCB* tcb = tcb_of(task);
  if (index < 0 || !tcb) {
    bracket.quitting();
    co_log2(task, 36366, 0, 0, 0, "%ld", static_cast<long>(db_id));
    *block = nullptr;
    *entry = nullptr;
    return rc = DBE_BAD_DB_ID;
  }
  *block = &tcb->cntl->files[index];
  *entry = &tcb->files[index];
  return rc;
}

std::int16_t db_open(void* task, std::uint32_t db_id, file_entry** handle) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  *handle = nullptr;
  iocb* block = nullptr;
  file_entry* entry = nullptr;
  rc = get_file_ptr(task, &block, &entry, db_id);
  if (rc != DBE_OK) {
    bracket.quitting();
    memory::log_db_msg(task, 36429, db_id);
    return rc;
  }
  if (entry->iocb) {
    ++entry->use_count;
    *handle = entry;
    return rc;
  }
  rc = open_entry(task, entry, block, static_cast<unsigned>(file_index(db_id)));
  if (rc == DBE_OK)
    *handle = entry;
  else
    bracket.quitting();
  return rc;
}

std::int16_t db_open_alone(void* task, std::uint32_t db_id, file_entry** handle) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  *handle = nullptr;
  iocb* block = nullptr;
  file_entry* entry = nullptr;
  rc = get_file_ptr(task, &block, &entry, db_id);
  if (rc != DBE_OK) {
    bracket.quitting();
    memory::log_db_msg(task, 36429, db_id);
    return rc;
  }
  rc = DBE_IO_ERROR;
  if (!entry->iocb && block->use_count == 0)
    rc = open_entry(task, entry, block, static_cast<unsigned>(file_index(db_id)), sharing::with_nobody);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  // The record operations begin none of their own then.
  set_trans_active(task, block->db_id);
  *handle = entry;
  return rc;
}

std::int16_t db_close(void* task, file_entry* handle) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  open_file file;
  if (!find_open(task, handle, &file)) {
    ZVR_TRACE(task, 3, 2, "File not open for file handle %p", static_cast<const void*>(handle));
    return rc;
  }
  if (handle->use_count > 0 && --handle->use_count != 0) return rc;
  const iocb* block = handle->iocb;
  const std::uint32_t db_id = file.spec->list_id;
  int rolled = engine::e_ok;
  if (file.tcb->trans_active[db_id] == 1) {
    ZVR_TRACE(task, 4, 2, "Interrupted transaction found for file %s", file.spec->name);
    note_undone(file.tcb, file.index);
    rolled = engine::transroll(handle->psp, nullptr, 0, nullptr);
    ZVR_TRACE(task, 1, 2, "transroll returned %d", rolled);
    reset_trans_active(task, db_id);
  }
  // After a failed roll-back nothing more may be written; the next opener repeats it.
  const int code =
      rolled == engine::e_ok || rolled == engine::e_trans_none ? engine::dclose(handle->psp) : rolled;
  if (code != engine::e_ok) {
    issue_err_msg(task, block->name, static_cast<std::int16_t>(code), at_close_or_flush);
    rc = DBE_IO_ERROR;
  }
  free_handle(task, handle);
  handle->iocb = nullptr;
  handle->use_count = 0;
  count_close(task, file.index);
  return rc;
}

void reopen_after_failure(void* task, unsigned index) {
  const trace_bracket bracket(task, __func__);
  DBR_TCB* tcb = tcb_of(task);
  file_entry* entry = &tcb->files[index];
  if (!entry->iocb) return;
  if (engine::checkpsp(entry->psp) == 'O') engine::abandon(entry->psp);
  free_handle(task, entry);
  iocb* block = entry->iocb;
  const std::uint32_t use_count = entry->use_count;
  entry->iocb = nullptr;
  entry->use_count = 0;
  count_close(task, index);
  if (open_entry(task, entry, block, index) == DBE_OK) entry->use_count = use_count;
}

void reopen_lost_files(void* task) {
  DBR_TCB* tcb = tcb_of(task);
  const auto is_open = [](const file_entry& entry) { return entry.iocb != nullptr; };
  if (std::all_of(std::begin(tcb->files), std::end(tcb->files), is_open)) return;  // asked for each call
  for (unsigned index = 0; index < file_count; ++index) {
    file_entry* entry = tcb->*file_at(index).handle;
    if (!entry || entry->iocb) continue;
    // The file was lost in a roll-back, and memory may show what is not in it.
    if (open_entry(task, entry, &tcb->cntl->files[index], index) == DBE_OK) tcb->undone_ids |= 1u << index;
  }
}

std::int16_t open_files(void* task) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  // In the order in which the files are opened, which is not that of the table.
  constexpr unsigned opening_order[file_count] = {0, 2, 3, 4, 5, 6, 1, 7, 8};
  static const bool cache_sized = (engine::set_cache_blocks(cache_blocks), true);
  (void)cache_sized;
  DBR_TCB* tcb = tcb_of(task);
  ask_journal_choice_anew(task);
  reap_dead_use_counts(task);
  for (const unsigned index : opening_order) {
    const file_spec& spec = file_at(index);
    set_datalist(task, spec.list_id, &tcb->cntl->files[index], spec.name, spec.key_len);
    file_entry* handle = nullptr;
    rc = db_open(task, spec.list_id, &handle);
    tcb->*spec.handle = handle;
    if (rc != DBE_OK) {
      bracket.quitting();
      return rc;
    }
  }
  return rc;
}

}  // namespace zvrdb::recfile
