// Change files by name and by number, on the tables in shared memory.
//
// Names are ordered by their text areas.  Those with equal text areas are ordered by
// their token tables, so that the index is the same however it came about: downwards,
// for the end mark is the greatest offset, and the shorter name so comes first as it does
// among all others.
#include <cstring>

#include "memory/catalog_tables.h"
#include "memory/cf_name.h"
#include "memory/codes.h"
#include "memory/trace.h"

namespace zvrdb::memory {
namespace {

static_assert(cf_name_len <= sizeof DIST_CAT_ENTRY::head);

using name_compare = int (*)(const void* a, const void* b);

int compare_texts(const void* a, const void* b) {
  return std::memcmp(static_cast<const unsigned char*>(a) + cf_text_offset,
                     static_cast<const unsigned char*>(b) + cf_text_offset, cf_text_len);
}

// The entries of CAT_CNTL that are in use.
struct index_entries {
  const CAT_CNTL_ENTRY* first;
  std::uint32_t count;
  std::uint16_t slot_of(std::uint32_t position) const { return first[position].dist_idx; }
};

// Entries in a caller's area, which need not be aligned.
struct listed_entries {
  const unsigned char* bytes;
  std::uint32_t count;
  std::uint16_t slot_of(std::uint32_t position) const {
    CAT_CNTL_ENTRY entry;
    std::memcpy(&entry, bytes + std::size_t{position} * sizeof entry, sizeof entry);
    return entry.dist_idx;
  }
};

// First position whose name is not below `name`.  An entry that leads to no slot is
// below every name.
template <class Entries>
std::uint32_t first_not_below(const catalog_tables& tables, const Entries& entries, const void* name,
                              name_compare compare) {
  std::uint32_t low = 0;
  std::uint32_t high = entries.count;
  while (low < high) {
    const std::uint32_t middle = low + (high - low) / 2;
    const DIST_CAT_ENTRY* slot = tables.slot(entries.slot_of(middle));
    if (!slot || compare(slot->head, name) < 0)
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

template <class Entries>
bool equal_at(const catalog_tables& tables, const Entries& entries, std::uint32_t position, const void* name,
              name_compare compare) {
  if (position >= entries.count) return false;
  const DIST_CAT_ENTRY* slot = tables.slot(entries.slot_of(position));
  return slot && compare(slot->head, name) == 0;
}

// Place of this very name; else of the first with its text, or that is above it.
template <class Entries>
std::uint32_t place_of(const catalog_tables& tables, const Entries& entries, const void* name) {
  const std::uint32_t very = first_not_below(tables, entries, name, compare_cf_names);
  if (equal_at(tables, entries, very, name, compare_cf_names)) return very;
  return first_not_below(tables, entries, name, compare_texts);
}

}  // namespace

int compare_cf_names(const void* a, const void* b) {
  const int compared = compare_texts(a, b);
  return compared != 0 ? compared : std::memcmp(b, a, cf_text_offset);
}

std::int64_t find_cat(void* task, const void* cf_name) {
  if (!cf_name) return -1;
  const catalog_tables tables = catalog_of(tcb_of(task));
  const index_entries entries{tables.index, tables.count};
  const std::uint32_t place = place_of(tables, entries, cf_name);
  return equal_at(tables, entries, place, cf_name, compare_texts) ? std::int64_t{place} : -1;
}

std::int64_t locate_cat(void* task, const void* cf_name) {
  if (!cf_name) return -1;
  const catalog_tables tables = catalog_of(tcb_of(task));
  const index_entries entries{tables.index, tables.count};
  const std::uint32_t place = first_not_below(tables, entries, cf_name, compare_cf_names);
  return place < entries.count ? std::int64_t{place} : -1;
}

DIST_CAT_ENTRY* cat_slot_of(void* task, const void* cf_name, std::int64_t* position) {
  const std::int64_t found = find_cat(task, cf_name);
  if (position) *position = found;
  return found < 0 ? nullptr : catalog_of(tcb_of(task)).slot_at(static_cast<std::uint32_t>(found));
}

std::uint32_t locate_in_cat_list(void* task, const void* cf_name, const void* list, std::uint32_t count) {
  return place_of(catalog_of(tcb_of(task)), listed_entries{static_cast<const unsigned char*>(list), count},
                  cf_name);
}

std::int16_t get_cat_num(void* task, std::uint16_t* number, const void* cf_name) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const DIST_CAT_ENTRY* found = cat_slot_of(task, cf_name);
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
