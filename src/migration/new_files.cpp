#include "migration/new_files.h"

#include "keyed/keyed.h"
#include "memory/trace.h"
#include "recfile/file_table.h"
#include "recfile/recfile.h"

namespace zvrdb::migration {
namespace {

std::uint32_t records_in_transaction = 512;

}  // namespace

void set_transaction_records(std::uint32_t records) {
  records_in_transaction = records;
}

std::int16_t remove_new_file(const conversion& run, std::uint32_t db_id, const char* path) {
  const int index = recfile::file_index(db_id);
  if (index < 0) return DBE_IO_ERROR;
  if (run.tcb->cntl->files[index].use_count != 0) {
    tell_note(run, 0, "%s is open in another task", path);
    return DBE_IO_ERROR;
  }
  return remove_path(run, path);
}

const char* new_file_name(std::uint32_t db_id) {
  return recfile::file_at(static_cast<unsigned>(recfile::file_index(db_id))).name;
}

std::int16_t new_file::open(std::uint32_t db_id, building how) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run_.task, __func__, &rc);
  const int index = recfile::file_index(db_id);
  if (index < 0) return rc = DBE_IO_ERROR;
  const recfile::file_spec& spec = recfile::file_at(static_cast<unsigned>(index));
  recfile::set_datalist(run_.task, spec.list_id, &run_.tcb->cntl->files[index], spec.name, spec.key_len);
  step(run_);
  alone_ = how == building::anew && !run_.tcb->files[index].iocb &&
           recfile::db_open_alone(run_.task, db_id, &handle_) == DBE_OK;
  if (!alone_) rc = recfile::db_open(run_.task, db_id, &handle_);
  step(run_);
  if (rc != DBE_OK) {
    handle_ = nullptr;
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  list_id_ = spec.list_id;
  run_.tcb->*spec.handle = handle_;
  return rc;
}

std::int16_t new_file::begin_if_none() {
  if (alone_ || in_transaction_) return DBE_OK;
  const std::int16_t rc = recfile::start_trans(run_.task, list_id_);
  in_transaction_ = rc == DBE_OK;
  return rc;
}

std::int16_t new_file::count_one() {
  if (alone_) return DBE_OK;
  return ++uncommitted_ < records_in_transaction ? static_cast<std::int16_t>(DBE_OK) : commit();
}

std::int16_t new_file::put(std::uint32_t db_id, void* key, const void* record, std::uint32_t record_len) {
  const std::int16_t begun = begin_if_none();
  if (begun != DBE_OK) return begun;
  step(run_);
  const std::int16_t rc = keyed::put_keyed(run_.task, db_id, handle_, key, record, record_len);
  if (!stored(rc)) return rc;
  const std::int16_t counted = count_one();
  return counted == DBE_OK ? rc : counted;
}

std::int16_t new_file::write(void* key, const void* image, std::uint32_t image_len) {
  const std::int16_t begun = begin_if_none();
  if (begun != DBE_OK) return begun;
  step(run_);
  const std::int16_t rc = recfile::db_write(run_.task, handle_, key, image, image_len);
  return rc == DBE_OK ? count_one() : rc;
}

std::int16_t new_file::commit() {
  if (!alone_ && !in_transaction_) return DBE_OK;
  step(run_);
  const std::int16_t rc =
      alone_ ? recfile::db_bflush(run_.task, list_id_) : recfile::commit(run_.task, list_id_);
  in_transaction_ = false;
  uncommitted_ = 0;
  step(run_);
  return rc;
}

std::int16_t new_file::close() {
  if (!handle_) return DBE_OK;
  if (in_transaction_) recfile::rollback(run_.task, list_id_);
  if (alone_) recfile::reset_trans_active(run_.task, list_id_);
  in_transaction_ = false;
  const std::int16_t rc = recfile::db_close(run_.task, handle_);
  // Others of this task may have it open.
  const auto index = static_cast<unsigned>(recfile::file_index(list_id_));
  if (!handle_->iocb) run_.tcb->*recfile::file_at(index).handle = nullptr;
  handle_ = nullptr;
  step(run_);
  return rc;
}

}  // namespace zvrdb::migration
