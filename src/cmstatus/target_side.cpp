// The record of a target: all change files that it has status of.
#include "cmstatus/sides.h"
#include "cmstatus/stored_records.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"

namespace zvrdb::cmstatus {

std::int16_t del_cm_by_trg(void* task, std::uint32_t trg_index, std::uint16_t cf_number, image_area* work) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  rc = locate(task, by_trg, trg_index);
  if (rc == DBE_OK) rc = read_image(task, work);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  // A change file that is not listed leads to a free entry, which stays one, or to the
  // end of the body, where nothing is written.
  std::uint32_t offset = 0;
  find_cms(work->body, cf_number, &offset);
  free_entry_at(work->body, offset);
  return rc = update_image(task, by_trg, trg_index, *work);
}

}  // namespace zvrdb::cmstatus
