// Reading change files by name, and by the entry of a list.
#include <algorithm>
#include <cstring>

#include "catalog/catalog.h"
#include "catalog/catalog_key.h"
#include "keyed/keyed.h"
#include "memory/copy_out.h"
#include "memory/catalog_tables.h"
#include "memory/trace.h"

namespace zvrdb::catalog {
namespace {

std::int16_t get_cat_entry(void* task, const DIST_CAT_ENTRY* slot, void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (!slot || slot->free_flag == 1) {
    bracket.quitting();
    return rc = DBE_NOT_FOUND;
  }
  if (length <= cat_head_len) {
    memory::copy_out(buffer, slot->head, length);
    return rc;
  }
  catalog_key key = {DB_CAT, slot->cf_number, 0, 0, 0, 0};
  return rc = keyed::get_keyed(task, DB_CAT, memory::tcb_of(task)->cat_file, &key, buffer,
                               std::min<std::uint32_t>(length, cat_record_len));
}

}  // namespace

std::int16_t get_cat(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const DIST_CAT_ENTRY* slot = memory::cat_slot_of(task, name_key(num_keys, keys));
  if (!slot) {
    bracket.quitting();
    return rc = DBE_NOT_FOUND;
  }
  return rc = get_cat_entry(task, slot, buffer, length);
}

std::int16_t get_next_cat(void* task, const void* list, const std::uint16_t* index, void* buffer,
                          std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  CAT_CNTL_ENTRY entry;
  std::memcpy(&entry, static_cast<const unsigned char*>(list) + std::size_t{*index} * sizeof entry,
              sizeof entry);
  const DIST_CAT_ENTRY* slot = memory::catalog_of(memory::tcb_of(task)).slot(entry.dist_idx);
  rc = get_cat_entry(task, slot, buffer, length);
  if (rc == DBE_OK && slot->cf_gen != entry.spare) rc = DBE_ENTRY_CHANGED;
  return rc;
}

std::int16_t find_cat_idx(void* task, const void* cf_name, const void* list, std::uint16_t count,
                          std::uint16_t* index) {
  const trace_bracket bracket(task, __func__);
  *index = static_cast<std::uint16_t>(memory::locate_in_cat_list(task, cf_name, list, count));
  return DBE_OK;
}

}  // namespace zvrdb::catalog
