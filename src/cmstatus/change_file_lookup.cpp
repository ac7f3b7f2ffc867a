#include "cmstatus/change_file_lookup.h"

#include <zvrdb/records.h>

#include "keyed/keyed.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"

namespace zvrdb::cmstatus {
namespace {

// Key of a change file's record in host order.
struct cat_key {
  std::uint32_t db_id;
  std::uint16_t cf_number;
  unsigned char zero[10];
};
static_assert(sizeof(cat_key) == 16);
static_assert(sizeof(db_cat) == 2464);

constexpr std::uint8_t authorize_all = 1;

}  // namespace

std::int16_t find_change_file(void* task, const void* cf_name, std::uint16_t* cf_number,
                              std::uint8_t* cf_flags) {
  *cf_flags = 0;
  if (memory::get_cat_num(task, cf_number, cf_name) != DBE_OK) {
    ZVR_TRACE(task, 3, 2, "Bad CF");
    return DBE_NOT_FOUND;
  }
  db_cat record = {};
  cat_key key = {DB_CAT, *cf_number, {}};
  const std::int16_t rc =
      keyed::get_keyed(task, DB_CAT, memory::tcb_of(task)->cat_file, &key, &record, sizeof record);
  if (rc != DBE_OK) {
    ZVR_TRACE(task, 3, 2, "Change file %hu cannot be read", *cf_number);
    return DBE_NOT_FOUND;
  }
  *cf_flags = record.cf_flags;
  return DBE_OK;
}

bool default_for_all(void* task) {
  const auto* config = static_cast<const unsigned char*>(co_croca(task, CO_AREA_CONFIG));
  return config && config[offsetof(db_cfg, authorize)] == authorize_all;
}

bool is_local(const TRG_CNTL_ENTRY* slot) {
  return slot && (slot->trg_type & memory::trg_type_local) != 0;
}

}  // namespace zvrdb::cmstatus
