// The record of a change file: all targets that have status of it.
#include "cmstatus/cm_status.h"
#include "cmstatus/sides.h"
#include "cmstatus/stored_records.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"

namespace zvrdb::cmstatus {
namespace {

std::int16_t store_in_image(void* task, std::uint32_t trg_index, std::uint16_t cf_number, std::uint8_t status,
                            image_area* image) {
  std::int16_t rc = locate(task, by_cat, cf_number);
  const bool has_record = rc == DBE_OK;
  if (has_record) rc = read_image(task, image);
  if (rc != DBE_OK && (has_record || rc != DBE_NOT_FOUND)) return rc;
  const std::int16_t stored = store_target(&image->body, trg_index, status);
  if (stored != DBE_OK && stored != DBE_RECORD_REPLACED) return stored;
  rc = has_record ? update_image(task, by_cat, cf_number, *image)
                  : write_image(task, by_cat, cf_number, *image);
  return rc == DBE_OK ? stored : rc;
}

}  // namespace

std::int16_t any_cm_by_cat(void* task, std::uint16_t cf_number) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const std::int16_t found = locate(task, by_cat, cf_number);
  if (found == DBE_NOT_FOUND) return rc;
  bracket.quitting();
  if (found == DBE_OK) return rc = DBE_CMS_EXISTS;
  return rc = found;
}

std::int16_t put_cm_by_cat(void* task, std::uint32_t trg_index, std::uint16_t cf_number,
                           std::uint8_t status) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  image_area image = file_area(task, "PUTBY_CAT");
  rc = DBE_IO_ERROR;
  if (image.there()) rc = store_in_image(task, trg_index, cf_number, status, &image);
  if (rc != DBE_OK && rc != DBE_RECORD_REPLACED) bracket.quitting();
  return rc;
}

std::int16_t del_cm_by_cat(void* task, std::uint32_t trg_index, std::uint16_t cf_number, image_area* work) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  rc = locate(task, by_cat, cf_number);
  if (rc == DBE_OK) rc = read_image(task, work);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  const std::uint32_t position = find_target(work->body, trg_index);
  if (position == entries_of_file(work->body)) {
    ZVR_TRACE(task, 2, 2, "CM Status record not found for trg %x and CF %hu", trg_index, cf_number);
    return rc;
  }
  remove_target(&work->body, position);
  if (work->body.length > 0) return rc = update_image(task, by_cat, cf_number, *work);
  return rc = delete_record(task, by_cat, cf_number);
}

}  // namespace zvrdb::cmstatus
