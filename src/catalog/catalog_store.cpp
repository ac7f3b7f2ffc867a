// Adding and replacing a change file.
//
// The record goes into the file first; the tables follow once it is there.
#include <algorithm>
#include <cstring>

#include "catalog/catalog.h"
#include "catalog/catalog_key.h"
#include "keyed/keyed.h"
#include "memory/catalog_tables.h"
#include "memory/cf_name.h"
#include "memory/trace.h"

namespace zvrdb::catalog {
namespace {

using memory::catalog_tables;
using memory::cf_name_len;

// Numbers are those below; 65535 stands for "no change file" in CM status.
constexpr std::uint32_t most_slots = 65535;

struct cat_put {
  void* task;
  DBR_TCB* tcb;
  unsigned char head[cat_head_len];  // of the caller's record; bytes that it does not have are zero
  const void* record;                // what is stored
  std::uint32_t record_len;
  unsigned char short_record[cf_name_len + 1];
};

bool written(std::int16_t rc) {
  return rc == DBE_OK || rc == DBE_RECORD_REPLACED;
}

void take_record(cat_put& put, const void* record, std::uint16_t length) {
  put.record = record;
  put.record_len = std::min<std::uint32_t>(length, cat_record_len);
  std::memcpy(put.head, record, std::min(put.record_len, cat_head_len));
  // A record that ends within its name is stored with its last byte made a NUL; one zero
  // more keeps the name whole.
  if (put.record_len == 0 || put.record_len > cf_name_len) return;
  std::memcpy(put.short_record, record, put.record_len);
  put.record = put.short_record;
  ++put.record_len;
}

// The lowest free slot, or the one behind all others.
std::uint32_t slot_for_new(void* task, const catalog_tables& tables) {
  // Each slot is free or in the index, so that a full table is not searched.
  if (tables.count < tables.slot_count)
    for (std::uint32_t number = 0; number < tables.slot_count; ++number)
      if (tables.slots[number].free_flag == 1) return number;
  ZVR_TRACE(task, 2, 2, "%s", "No free space in DIST_CAT");
  return tables.slot_count;
}

std::int16_t write_record(const cat_put& put, std::uint32_t number) {
  catalog_key key = {DB_CAT, static_cast<std::uint16_t>(number), 0, 0, 0, 0};
  return keyed::put_keyed(put.task, DB_CAT, put.tcb->cat_file, &key, put.record, put.record_len);
}

void fill_slot(const cat_put& put, DIST_CAT_ENTRY& slot) {
  slot.free_flag = 0;
  ++slot.cf_gen;
  std::memcpy(slot.head, put.head, cat_head_len);
}

// Puts the slot in at this position and tells anew where neighbours differ.
void enter_in_index(const cat_put& put, std::uint32_t position, std::uint32_t number) {
  DBR_CNTL* cntl = put.tcb->cntl;
  CAT_CNTL_ENTRY* index = put.tcb->cat_cntl;
  std::memmove(index + position + 1, index + position,
               (std::size_t{memory::catalog_of(put.tcb).count} - position) * sizeof *index);
  index[position] = {static_cast<std::uint16_t>(number), 0, 0};
  ++cntl->num_cat_actual;
  if (number == cntl->num_cat_inited) ++cntl->num_cat_inited;
  const catalog_tables tables = memory::catalog_of(put.tcb);
  for (std::uint32_t at = position == 0 ? 0 : position - 1; at <= position && at + 1 < tables.count; ++at) {
    const DIST_CAT_ENTRY* slot = tables.slot_at(at);
    const DIST_CAT_ENTRY* next = tables.slot_at(at + 1);
    index[at].name_diff =
        slot && next ? memory::encoded_name_diff(put.task, slot->head, next->head) : std::uint8_t{0};
  }
}

std::int16_t add(cat_put& put, std::int64_t place) {
  catalog_tables tables = memory::catalog_of(put.tcb);
  if (place < 0) ZVR_TRACE(put.task, 3, 2, "%s", "Had to reset a null cat_index");
  const std::uint32_t position = place < 0 ? tables.count : static_cast<std::uint32_t>(place);
  const std::uint32_t number = slot_for_new(put.task, tables);
  if (number >= most_slots) return DBE_LIMIT_EXCEEDED;
  // The generation goes on before the tables are full.
  const std::uint32_t size = memory::cat_table_size(put.tcb);
  if (number >= size || tables.count >= size) return DBE_LIMIT_EXCEEDED;
  const std::int16_t rc = write_record(put, number);
  if (!written(rc)) return rc;
  DIST_CAT_ENTRY& slot = put.tcb->dist_cat[number];
  slot.cf_number = static_cast<std::uint16_t>(number);
  fill_slot(put, slot);
  enter_in_index(put, position, number);
  // The record of a number that was free replaces what marked it as such.
  return DBE_OK;
}

std::int16_t replace(cat_put& put, DIST_CAT_ENTRY& slot) {
  const std::int16_t rc = write_record(put, slot.cf_number);
  if (!written(rc)) return rc;
  fill_slot(put, slot);
  return DBE_RECORD_REPLACED;
}

// The tables of the next generation have room again.
void grow_when_full(void* task, const DBR_CNTL* cntl) {
  if (cntl->num_cat_inited < cntl->num_cat_alloc) return;
  ZVR_TRACE(task, 3, 2, "%s", "Need to reinit mem");
  memory::raise_generation(task);
}

// A record of another name than its key's would break the order, and one that looks
// like the image of a free number would be gone when the tables are built anew.
bool name_may_stand(const cat_put& put, const unsigned char* name) {
  return name && std::memcmp(put.head, name, cf_name_len) == 0 && !is_free_image(put.head);
}

}  // namespace

std::int16_t put_cat(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  cat_put put{};
  put.task = task;
  put.tcb = memory::tcb_of(task);
  take_record(put, record, length);
  const unsigned char* name = name_key(num_keys, keys);
  if (!name_may_stand(put, name)) {
    ZVR_TRACE(task, 5, 2, "%s", "The record does not bear the name of its key");
    bracket.quitting();
    return rc = DBE_BAD_RECORD;
  }
  const std::int64_t place = memory::locate_cat(task, name);
  DIST_CAT_ENTRY* slot =
      place < 0 ? nullptr : memory::catalog_of(put.tcb).slot_at(static_cast<std::uint32_t>(place));
  const bool exists = slot && std::memcmp(slot->head, name, cf_name_len) == 0;
  rc = exists ? replace(put, *slot) : add(put, place);
  if (!written(rc)) {
    bracket.quitting();
    return rc;
  }
  grow_when_full(task, put.tcb->cntl);
  return rc;
}

}  // namespace zvrdb::catalog
