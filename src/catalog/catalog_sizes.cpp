// Sizes of the catalog's tables.
#include "catalog/catalog.h"
#include "catalog/catalog_key.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "recfile/recfile.h"

namespace zvrdb::catalog {
namespace {

// One above the highest number that a record of the file has.  Products and filesets
// stand behind the change files, and their numbers lead nowhere near the highest one, so
// the last change file is searched from above.
std::int16_t count_slots(void* task, DBR_TCB* tcb, std::uint32_t* count) {
  *count = 0;
  catalog_key key = {};
  std::int16_t rc = recfile::db_locate_surely(task, tcb->cat_file, &key, recfile::KEY_LAST);
  if (rc == DBE_NOT_FOUND) ZVR_TRACE(task, 2, 2, "%s", "Distribution Catalog is empty");
  if (rc == DBE_OK && key.db_id != DB_CAT) {
    key = {DB_CAT, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0};
    rc = recfile::db_locate_surely(task, tcb->cat_file, &key, recfile::KEY_LE);
  }
  if (rc == DBE_OK && key.db_id == DB_CAT) *count = key.cf_number + 1u;
  return rc == DBE_NOT_FOUND ? static_cast<std::int16_t>(DBE_OK) : rc;
}

}  // namespace

std::int16_t alloc_cat(void* task) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  DBR_TCB* tcb = memory::tcb_of(task);
  DBR_CNTL* cntl = tcb->cntl;
  if (cntl->alloc_generation == cntl->shm_generation && cntl->finitialized != 0) return rc;
  // What a writer that died made of the count is not believed.
  if (cntl->fwrite_in_prog != 0 || cntl->finitialized == 0) {
    std::uint32_t count = 0;
    rc = count_slots(task, tcb, &count);
    if (rc != DBE_OK) {
      bracket.quitting();
      return rc;
    }
    cntl->num_cat_inited = count;
  }
  memory::tell_count(&cntl->num_cat_alloc, cntl->num_cat_inited + spare_slots);
  cntl->cat_cntl_len = cntl->num_cat_alloc * static_cast<std::uint32_t>(sizeof(CAT_CNTL_ENTRY));
  cntl->dist_cat_len = cntl->num_cat_alloc * static_cast<std::uint32_t>(sizeof(DIST_CAT_ENTRY));
  return rc;
}

}  // namespace zvrdb::catalog
