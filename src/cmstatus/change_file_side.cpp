// The record of a change file: all targets that have status of it.
#include "cmstatus/cm_status.h"
#include "cmstatus/stored_records.h"
#include "memory/trace.h"

namespace zvrdb::cmstatus {

std::int16_t init_cms(void* task) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc;
}

std::int16_t any_cm_by_cat(void* task, std::uint16_t cf_number) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const std::int16_t found = locate(task, by_cat, cf_number);
  if (found == DBE_NOT_FOUND) return rc;
  bracket.quitting();
  if (found == DBE_OK) return rc = DBE_CMS_EXISTS;
  return rc = found;
}

}  // namespace zvrdb::cmstatus
