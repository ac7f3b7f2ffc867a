// Change files by name and by number, on the tables in shared memory.
#include <algorithm>
#include <cstring>

#include "memory/cf_name.h"
#include "memory/codes.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"

namespace zvrdb::memory {
namespace {

static_assert(cf_name_len <= sizeof DIST_CAT_ENTRY::head);

std::uint32_t cat_count(const DBR_TCB* tcb) {
  const std::uint32_t size = cat_table_size(tcb);
  return size == 0 ? 0 : std::min(tcb->cntl->num_cat_actual, size);
}

// Slot of an index entry; null when the entry points outside the table.
const DIST_CAT_ENTRY* slot_at(const DBR_TCB* tcb, std::uint32_t position) {
  const std::uint16_t slot = tcb->cat_cntl[position].dist_idx;
  return slot < cat_table_size(tcb) ? tcb->dist_cat + slot : nullptr;
}

// Order of the key's text against that of an entry; an entry without a slot is below
// every name.
int compare_text(const DBR_TCB* tcb, const unsigned char* name, std::uint32_t position) {
  const DIST_CAT_ENTRY* slot = slot_at(tcb, position);
  return slot ? std::memcmp(name + cf_text_offset, slot->head + cf_text_offset, cf_text_len) : 1;
}

// The entry with this name: among those with an equal text the one whose token table
// is equal too, else the first of them.  Null when no text is equal.
const DIST_CAT_ENTRY* find_change_file(const DBR_TCB* tcb, const unsigned char* name) {
  const std::uint32_t count = cat_count(tcb);
  std::uint32_t low = 0;
  std::uint32_t high = count;
  while (low < high) {
    const std::uint32_t middle = low + (high - low) / 2;
    if (compare_text(tcb, name, middle) > 0)
      low = middle + 1;
    else
      high = middle;
  }
  const DIST_CAT_ENTRY* found = nullptr;
  for (; low < count && compare_text(tcb, name, low) == 0; ++low) {
    const DIST_CAT_ENTRY* slot = slot_at(tcb, low);
    if (std::memcmp(name, slot->head, cf_name_len) == 0) return slot;
    if (!found) found = slot;
  }
  return found;
}

}  // namespace

std::int16_t get_cat_num(void* task, std::uint16_t* number, const void* cf_name) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const DIST_CAT_ENTRY* found = nullptr;
  if (cf_name) found = find_change_file(tcb_of(task), static_cast<const unsigned char*>(cf_name));
  if (!found) {
    bracket.quitting();
    return rc = DBE_NOT_FOUND;
  }
  *number = found->cf_number;
  return rc;
}

std::int16_t get_cat_name(void* task, void* cf_name, std::uint16_t number) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const DBR_TCB* tcb = tcb_of(task);
  // The bound is the number of valid change files, itself included: once some are
  // deleted, the names of the highest numbers can no longer be had.
  if (number >= cat_table_size(tcb) || tcb->cntl->num_cat_actual < number) {
    ZVR_TRACE(task, 2, 2, "%s", "CF number requestes greater than num actual");
    bracket.quitting();
    return rc = DBE_NOT_FOUND;
  }
  std::memcpy(cf_name, tcb->dist_cat[number].head, cf_name_len);
  return rc;
}

}  // namespace zvrdb::memory
