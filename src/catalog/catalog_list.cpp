// Lists of change files by filter.
//
// The index is in order of names, and each entry tells where its name first differs from
// the next one.  So the first candidate is searched, and neighbours that differ only
// behind the place from which on the filter takes anything are listed without a look at
// their names: the run of the one that was tested.
//
// How far a run goes is told by the encoded differences alone.  It may take in a name
// that the filter by itself would refuse (one with an eleventh token, or one that differs
// far back in a long token, which reads as a later token), and that is how lists are.
#include "catalog/catalog_list.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "catalog/catalog.h"
#include "catalog/name_filter.h"
#include "memory/catalog_tables.h"
#include "memory/trace.h"

namespace zvrdb::catalog {
namespace {

// The index with a filter laid on it.
struct filter_walk {
  void* task;
  memory::catalog_tables tables;
  const name_filter& filter;
  list_cost* cost;

  static unsigned encoded(memory::cf_position place) { return place.token * 16u + place.character; }

  // The filter's fixed part against the name at this position; one without a slot is
  // below every filter.
  int compare_fixed_part(std::uint32_t position) const {
    const DIST_CAT_ENTRY* slot = tables.slot_at(position);
    if (!slot) return 1;
    ++cost->prefix_tests;
    return cmp_match_first(task, filter, slot->head, filter.first);
  }

  // Whether a difference tells by its code alone that it lies behind the fixed part.  It
  // does when no character of that part spills into the token's half of the code.
  bool codes_are_plain() const {
    constexpr unsigned spilling = 16;
    const auto spills = [](const memory::cf_token& token) { return token.length >= spilling; };
    return filter.first.character < spilling &&
           std::none_of(filter.tokens, filter.tokens + filter.first.token, spills);
  }

  // Whether the name at this position, behind a run, is the first without the fixed part,
  // which all names of a run have.
  bool fixed_part_ends(std::uint32_t position, bool plain_codes) const {
    if (plain_codes && tables.index[position - 1].name_diff >= encoded(filter.first)) return false;
    return tables.slot_at(position) && compare_fixed_part(position) != 0;
  }

  bool matches(std::uint32_t position) const {
    const DIST_CAT_ENTRY* slot = tables.slot_at(position);
    if (!slot) return false;
    ++cost->filter_tests;
    return match_filter(task, filter, slot->head) == 0;
  }

  // First position whose name agrees with the filter's fixed part;
  // behind the last one when none does.
  std::uint32_t first_candidate() const {
    std::uint32_t low = 0;
    std::uint32_t high = tables.count;
    while (low < high) {
      const std::uint32_t middle = low + (high - low) / 2;
      if (compare_fixed_part(middle) > 0)
        low = middle + 1;
      else
        high = middle;
    }
    return low < tables.count && compare_fixed_part(low) == 0 ? low : tables.count;
  }

  // One behind the run that begins at this position.
  std::uint32_t run_end(std::uint32_t position) const {
    const unsigned beyond = encoded(filter.last);
    while (position + 1 < tables.count && tables.index[position].name_diff > beyond) ++position;
    return position + 1;
  }
};

// The caller's area.
struct list_area {
  unsigned char* bytes;
  std::uint32_t size;
  std::uint16_t* count;
  std::uint64_t used = 0;

  // False when the area is full.  An area that ends within the entry gets the part of it
  // that fits.
  bool add(CAT_CNTL_ENTRY entry, const DIST_CAT_ENTRY& slot) {
    if (used >= size || *count == std::numeric_limits<std::uint16_t>::max()) return false;
    entry.spare = slot.cf_gen;
    std::memcpy(bytes + used, &entry, std::min<std::uint64_t>(sizeof entry, size - used));
    used += sizeof entry;
    ++*count;
    return true;
  }
};

}  // namespace

std::int16_t list_matches(void* task, const void* filter, void* list, std::uint32_t size,
                          std::uint16_t* count, list_cost* cost) {
  const memory::catalog_tables tables = memory::catalog_of(memory::tcb_of(task));
  const name_filter taken = filter_of(task, filter);
  const filter_walk walk{task, tables, taken, cost};
  const bool plain_codes = walk.codes_are_plain();
  list_area area{static_cast<unsigned char*>(list), size, count};
  std::uint32_t position = walk.first_candidate();
  while (position < tables.count) {
    // The next match may lie behind the last name with the fixed part: only the end of a
    // run asks for it.
    if (!walk.matches(position)) {
      ++position;
      continue;
    }
    const std::uint32_t behind = walk.run_end(position);
    for (; position < behind; ++position) {
      const DIST_CAT_ENTRY* slot = tables.slot_at(position);
      if (slot && !area.add(tables.index[position], *slot)) return DBE_LIST_TOO_SMALL;
    }
    if (walk.fixed_part_ends(position, plain_codes)) break;
  }
  return DBE_OK;
}

std::int16_t start_list_cat(void* task, const void* filter, void* list, std::uint32_t size,
                            std::uint16_t* count) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (!filter) {
    bracket.quitting();
    return rc = DBE_BAD_RECORD;
  }
  list_cost cost;
  rc = list_matches(task, filter, list, size, count, &cost);
  ZVR_TRACE(task, 5, 2, "%hu listed for %lu filter tests", *count,
            static_cast<unsigned long>(cost.filter_tests));
  return rc;
}

}  // namespace zvrdb::catalog
