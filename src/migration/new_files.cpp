#include "migration/new_files.h"

#include "keyed/keyed.h"
#include "memory/trace.h"
#include "recfile/file_table.h"
#include "recfile/recfile.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t records_in_transaction = 512;

}  // namespace

const char* new_file_name(std::uint32_t db_id) {
  return recfile::file_at(static_cast<unsigned>(recfile::file_index(db_id))).name;
}

std::int16_t new_file::open(std::uint32_t db_id) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run_.task, __func__, &rc);
  const int index = recfile::file_index(db_id);
  if (index < 0) return rc = DBE_IO_ERROR;
  const recfile::file_spec& spec = recfile::file_at(static_cast<unsigned>(index));
  recfile::set_datalist(run_.task, spec.list_id, &run_.tcb->cntl->files[index], spec.name, spec.key_len);
  step(run_);
  rc = recfile::db_open(run_.task, db_id, &handle_);
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

std::int16_t new_file::count_one() {
  return ++uncommitted_ < records_in_transaction ? static_cast<std::int16_t>(DBE_OK) : commit();
}

std::int16_t new_file::put(std::uint32_t db_id, void* key, const void* record, std::uint32_t record_len) {
  if (!in_transaction_) {
    const std::int16_t begun = recfile::start_trans(run_.task, list_id_);
    if (begun != DBE_OK) return begun;
    in_transaction_ = true;
  }
  step(run_);
  const std::int16_t rc = keyed::put_keyed(run_.task, db_id, handle_, key, record, record_len);
  if (!stored(rc)) return rc;
  const std::int16_t counted = count_one();
  return counted == DBE_OK ? rc : counted;
}

std::int16_t new_file::write(void* key, const void* image, std::uint32_t image_len) {
  if (!in_transaction_) {
    const std::int16_t begun = recfile::start_trans(run_.task, list_id_);
    if (begun != DBE_OK) return begun;
    in_transaction_ = true;
  }
  step(run_);
  const std::int16_t rc = recfile::db_write(run_.task, handle_, key, image, image_len);
  return rc == DBE_OK ? count_one() : rc;
}

std::int16_t new_file::commit() {
  if (!in_transaction_) return DBE_OK;
  step(run_);
  const std::int16_t rc = recfile::commit(run_.task, list_id_);
  in_transaction_ = false;
  uncommitted_ = 0;
  step(run_);
  return rc;
}

std::int16_t new_file::close() {
  if (!handle_) return DBE_OK;
  if (in_transaction_) recfile::rollback(run_.task, list_id_);
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
