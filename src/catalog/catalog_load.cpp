// Building of the catalog's tables in a fresh, zeroed segment from the record file.
#include <zvrdb/records.h>

#include <cstring>

#include "catalog/catalog.h"
#include "catalog/catalog_key.h"
#include "keyed/keyed.h"
#include "keyed/scratch.h"
#include "memory/catalog_tables.h"
#include "memory/cf_name.h"
#include "memory/trace.h"
#include "recfile/recfile.h"

namespace zvrdb::catalog {
namespace {

// The head ends inside a text, which is read whole: a text that is cut gets a NUL.
constexpr std::uint32_t load_len = offsetof(db_cat, text346);
static_assert(load_len >= cat_head_len);

struct loading {
  void* task;
  DBR_TCB* tcb;
  std::uint32_t slots;  // entered so far: one above the last number
  std::uint32_t valid;
};

std::int16_t enter_record(loading& load, const unsigned char* record, std::uint16_t number) {
  if (number < load.slots || number >= load.tcb->cntl->num_cat_inited) {
    ZVR_TRACE(load.task, 5, 2, "Record %hu is not among the %lu that were counted", number,
              static_cast<unsigned long>(load.tcb->cntl->num_cat_inited));
    return DBE_INIT_FAILED;
  }
  DIST_CAT_ENTRY* slots = load.tcb->dist_cat;
  // Numbers are dense; in a damaged file those that no record has are free.
  for (; load.slots < number; ++load.slots) {
    slots[load.slots].free_flag = 1;
    slots[load.slots].cf_number = static_cast<std::uint16_t>(load.slots);
  }
  DIST_CAT_ENTRY& slot = slots[number];
  slot.cf_gen = 0;
  slot.cf_number = number;
  std::memcpy(slot.head, record, cat_head_len);
  slot.free_flag = is_free_image(record) ? 1 : 0;
  if (slot.free_flag == 0) load.tcb->cat_cntl[load.valid++] = {number, 0, 0};
  ++load.slots;
  return DBE_OK;
}

// Each record is found once and read once, as with the targets.
std::int16_t enter_all(loading& load, unsigned char* stored) {
  file_entry* file = load.tcb->cat_file;
  const recfile::reading_through ahead(file);
  catalog_key key = {};
  for (std::int16_t rc = recfile::db_locate_surely(load.task, file, &key, recfile::KEY_FIRST);;
       rc = recfile::db_locate_next(load.task, file, &key)) {
    if (rc == DBE_NOT_FOUND || (rc == DBE_OK && key.db_id != DB_CAT)) return DBE_OK;
    if (rc != DBE_OK) return rc;
    std::uint32_t stored_len = keyed::external_capacity;
    rc = recfile::db_read(load.task, file, stored, &stored_len);
    if (rc != DBE_OK) return rc;
    unsigned char record[load_len] = {};
    std::uint32_t record_len = load_len;
    rc = keyed::parse_keyed(load.task, DB_CAT, stored, record, &stored_len, &record_len);
    if (rc == DBE_OK) rc = enter_record(load, record, key.cf_number);
    if (rc != DBE_OK) return rc;
  }
}

void compute_differences(void* task, const memory::catalog_tables& tables) {
  for (std::uint32_t i = 0; i < tables.count; ++i) {
    const bool last = i + 1 == tables.count;
    tables.index[i].name_diff =
        last ? std::uint8_t{0}
             : memory::encoded_name_diff(task, tables.slot_at(i)->head, tables.slot_at(i + 1)->head);
  }
}

}  // namespace

std::int16_t init_cat(void* task) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  DBR_TCB* tcb = memory::tcb_of(task);
  DBR_CNTL* cntl = tcb->cntl;
  co_log2(task, 36358, 0, 0, 0, "%ld", static_cast<long>(cntl->num_cat_inited));
  loading load{task, tcb, 0, 0};
  unsigned char* stored = keyed::scratch_area(task, "INIT_CAT");
  const bool sized = memory::cat_table_size(tcb) >= cntl->num_cat_inited;
  // A catalog that ends before its count could not be read to its end.
  if (!stored || !sized || enter_all(load, stored) != DBE_OK || load.slots != cntl->num_cat_inited) {
    co_log2(task, 36360, 0, 0, 0, "%s", "");
    bracket.quitting();
    return rc = DBE_INIT_FAILED;
  }
  cntl->num_cat_actual = load.valid;
  memory::sort_cat(task);
  compute_differences(task, memory::catalog_of(tcb));
  return rc;
}

}  // namespace zvrdb::catalog
