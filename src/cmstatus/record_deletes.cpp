// All pairs of a target or of a change file at once.
#include "cmstatus/cm_status.h"
#include "cmstatus/sides.h"
#include "cmstatus/stored_records.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "recfile/recfile.h"

namespace zvrdb::cmstatus {
namespace {

// Takes every pair of the target's record out of the records of its change files.
std::int16_t leave_change_files(void* task, std::uint32_t trg_index, const record_body& body) {
  image_area work = file_area(task, "DELBY_CAT");
  std::int16_t rc = DBE_OK;
  for (std::uint32_t offset = 0; rc == DBE_OK && offset < body.length; offset += target_entry_len) {
    const std::uint16_t cf_number = cat_index_at(body, offset);
    if (cf_number != free_entry) rc = del_cm_by_cat(task, trg_index, cf_number, &work);
  }
  return rc;
}

// Frees every pair of the change file's record in the records of its targets.
std::int16_t leave_targets(void* task, std::uint16_t cf_number, const record_body& body) {
  image_area work = target_area(task, "DELBY_TRG");
  const std::uint32_t entries = entries_of_file(body);
  for (std::uint32_t position = 0; position < entries; ++position) {
    const std::int16_t rc = del_cm_by_trg(task, target_status_at(body, position).trg_index, cf_number, &work);
    if (rc != DBE_OK && rc != DBE_NOT_FOUND) return rc;
  }
  return DBE_OK;
}

// The target's record goes with all of its pairs, in a transaction that is under way when
// *begun is true.  0 also when there is none.
std::int16_t delete_of_target(void* task, std::uint32_t trg_index, bool* begun) {
  std::int16_t rc = locate(task, by_trg, trg_index);
  if (rc != DBE_OK) return rc == DBE_NOT_FOUND ? static_cast<std::int16_t>(DBE_OK) : rc;
  image_area image = target_area(task, "DELTRG_CMS");
  rc = read_image(task, &image);
  if (rc == DBE_OK) rc = recfile::start_trans(task, DB_CMS);
  if (rc != DBE_OK) return rc;
  *begun = true;
  // The frame counts this call as a change of targets alone.
  ++memory::tcb_of(task)->cntl->gen[DB_CMS];
  rc = leave_change_files(task, trg_index, image.body);
  return rc == DBE_OK ? delete_record(task, by_trg, trg_index) : rc;
}

// The change file's record goes with all of its pairs.  0 also when there is none.
std::int16_t delete_of_change_file(void* task, std::uint16_t cf_number) {
  std::int16_t rc = locate(task, by_cat, cf_number);
  if (rc != DBE_OK) return rc == DBE_NOT_FOUND ? static_cast<std::int16_t>(DBE_OK) : rc;
  image_area image = file_area(task, "DELCF_CMS");
  rc = read_image(task, &image);
  if (rc == DBE_OK) rc = recfile::start_trans(task, DB_CMS);
  if (rc != DBE_OK) return rc;
  rc = leave_targets(task, cf_number, image.body);
  if (rc == DBE_OK) {
    rc = delete_record(task, by_cat, cf_number);
    if (rc == DBE_NOT_FOUND) rc = DBE_OK;
  }
  return end_change(task, rc);
}

}  // namespace

std::int16_t del_target_cms(void* task, const char* target) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  bool begun = false;
  rc = begin_del_target_cms(task, target, &begun);
  if (begun && rc == DBE_OK) rc = end_change(task, rc);
  if (rc != DBE_OK) bracket.quitting();
  return rc;
}

std::int16_t begin_del_target_cms(void* task, const char* target, bool* begun) {
  *begun = false;
  std::uint32_t trg_index = 0;
  if (memory::get_trg_index(task, target, &trg_index) != DBE_OK) return DBE_OK;
  const std::int16_t rc = delete_of_target(task, trg_index, begun);
  return *begun && rc != DBE_OK ? end_change(task, rc) : rc;
}

std::int16_t del_cf_cms(void* task, const void* cf_name) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  std::uint16_t cf_number = 0;
  if (memory::get_cat_num(task, &cf_number, cf_name) != DBE_OK) return rc;
  rc = delete_of_change_file(task, cf_number);
  if (rc != DBE_OK) bracket.quitting();
  return rc;
}

}  // namespace zvrdb::cmstatus
