// Deleting a change file with its products and filesets.
//
// Its number stays taken: the record is replaced by the image of a free one, so that
// the slots of all others stay where they are.
#include <algorithm>
#include <cstring>

#include "catalog/catalog.h"
#include "catalog/catalog_key.h"
#include "cmstatus/cm_status.h"
#include "keyed/keyed.h"
#include "memory/catalog_tables.h"
#include "memory/trace.h"
#include "recfile/file_table.h"
#include "recfile/recfile.h"

namespace zvrdb::catalog {
namespace {

std::int16_t delete_all_of(void* task, std::uint32_t db_id, std::uint16_t number) {
  file_entry* file = memory::tcb_of(task)->cat_file;
  for (;;) {
    catalog_key key = {db_id, number, 0, 0, 0, 0};
    std::int16_t rc = recfile::db_locate_surely(task, file, &key, recfile::KEY_GE);
    if (rc != DBE_OK) return rc == DBE_NOT_FOUND ? static_cast<std::int16_t>(DBE_OK) : rc;
    if (key.db_id != db_id || key.cf_number != number) return DBE_OK;
    rc = recfile::db_delete(task, &key, file);
    if (rc != DBE_OK) return rc;
  }
}

std::int16_t store_free_image(void* task, std::uint16_t number) {
  unsigned char record[cat_record_len] = {};
  std::memcpy(record, &free_mark, sizeof free_mark);
  catalog_key key = {DB_CAT, number, 0, 0, 0, 0};
  const std::int16_t rc =
      keyed::put_keyed(task, DB_CAT, memory::tcb_of(task)->cat_file, &key, record, cat_record_len);
  return rc == DBE_RECORD_REPLACED ? static_cast<std::int16_t>(DBE_OK) : rc;
}

// Takes the entry out of the index.  Where the one before it differs from its new
// neighbour is where it left the old one or, if that is nearer, where the old one did.
void free_slot(DBR_TCB* tcb, std::uint32_t position, DIST_CAT_ENTRY* slot) {
  const memory::catalog_tables tables = memory::catalog_of(tcb);
  CAT_CNTL_ENTRY* index = tables.index;
  slot->free_flag = 1;
  ++slot->cf_gen;
  if (position > 0)
    index[position - 1].name_diff = std::min(index[position - 1].name_diff, index[position].name_diff);
  tcb->cntl->num_cat_actual = tables.count - 1;
  std::memmove(index + position, index + position + 1,
               (std::size_t{tables.count} - 1 - position) * sizeof *index);
}

std::int16_t delete_records(void* task, std::uint16_t number) {
  const std::int16_t rc = del_prod_file(task, static_cast<std::int16_t>(number));
  return rc != DBE_OK ? rc : store_free_image(task, number);
}

// What memory shows was not kept in the file: the tables are to be built from it.
void note_disagreement(DBR_TCB* tcb) {
  tcb->undone_ids |= 1u << recfile::file_index(DB_CAT);
}

}  // namespace

std::int16_t del_prod_file(void* task, std::int16_t number) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  // Numbers above 32767 come as negative ones.
  const auto cf_number = static_cast<std::uint16_t>(number);
  rc = delete_all_of(task, DB_FST, cf_number);
  if (rc == DBE_OK) rc = delete_all_of(task, DB_PRD, cf_number);
  return rc;
}

std::int16_t del_cat(void* task, std::uint16_t num_keys, const void* const* keys) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  std::int64_t position = -1;
  DIST_CAT_ENTRY* slot = memory::cat_slot_of(task, name_key(num_keys, keys), &position);
  if (!slot) {
    ZVR_TRACE(task, 2, 2, "%s", "No record found");
    bracket.quitting();
    return rc = DBE_NOT_FOUND;
  }
  rc = cmstatus::any_cm_by_cat(task, slot->cf_number);
  if (rc == DBE_CMS_EXISTS) ZVR_TRACE(task, 3, 2, "%s", "CM record BY_CF exists for this CF");
  if (rc == DBE_OK) rc = recfile::start_trans(task, DB_CAT);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  rc = delete_records(task, slot->cf_number);
  if (rc != DBE_OK) {
    bracket.quitting();
    recfile::rollback(task, DB_CAT);
    return rc;
  }
  DBR_TCB* tcb = memory::tcb_of(task);
  free_slot(tcb, static_cast<std::uint32_t>(position), slot);
  rc = recfile::commit(task, DB_CAT);
  if (rc != DBE_OK) note_disagreement(tcb);
  return rc;
}

}  // namespace zvrdb::catalog
