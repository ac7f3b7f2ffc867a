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
std::uint32_t count_slots(void* task, DBR_TCB* tcb) {
  catalog_key key = {};
  if (recfile::db_locate(task, tcb->cat_file, &key, recfile::KEY_LAST) != DBE_OK) {
    ZVR_TRACE(task, 2, 2, "%s", "Distribution Catalog is empty");
    return 0;
  }
  if (key.db_id != DB_CAT) {
    key = {DB_CAT, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0};
    if (recfile::db_locate(task, tcb->cat_file, &key, recfile::KEY_LE) != DBE_OK) return 0;
  }
  return key.db_id == DB_CAT ? key.cf_number + 1u : 0;
}

}  // namespace

std::int16_t alloc_cat(void* task) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  DBR_TCB* tcb = memory::tcb_of(task);
  DBR_CNTL* cntl = tcb->cntl;
  if (cntl->alloc_generation == cntl->shm_generation && cntl->finitialized != 0) return rc;
  // What a writer that died made of the count is not believed.
  if (cntl->fwrite_in_prog != 0 || cntl->finitialized == 0) cntl->num_cat_inited = count_slots(task, tcb);
  cntl->num_cat_alloc = cntl->num_cat_inited + spare_slots;
  cntl->cat_cntl_len = cntl->num_cat_alloc * static_cast<std::uint32_t>(sizeof(CAT_CNTL_ENTRY));
  cntl->dist_cat_len = cntl->num_cat_alloc * static_cast<std::uint32_t>(sizeof(DIST_CAT_ENTRY));
  return rc;
}

}  // namespace zvrdb::catalog
