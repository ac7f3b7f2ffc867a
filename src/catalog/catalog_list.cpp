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

constexpr unsigned code_step = 16;  // what a token is worth in the code of a difference

// The index with a filter laid on it.
struct filter_walk {
  void* task;
  memory::catalog_tables tables;
  const name_filter& filter;
  list_cost* cost;

  static unsigned encoded(memory::cf_position place) { return place.token * code_step + place.character; }

  // Whether the code of a difference tells the token when that is this one or an earlier
  // one: none of them is so long that a character could spill into the token's half.
  static bool codes_are_plain(const void* name, std::uint32_t token) {
    for (std::uint32_t i = 0; i <= token; ++i)
      if (memory::token_of(name, i).length >= code_step) return false;
    return true;
  }

  // The filter's fixed part against the name at this position; one without a slot is
  // below every filter.
  int compare_fixed_part(std::uint32_t position) const {
    const DIST_CAT_ENTRY* slot = tables.slot_at(position);
    if (!slot) return 1;
    ++cost->prefix_tests;
    return cmp_match_first(task, filter, slot->head, filter.first);
  }

  // Whether the name at this position, behind a run, is the first without the fixed part,
  // which all names of a run have.
  bool fixed_part_ends(std::uint32_t position, bool plain_codes) const {
    if (plain_codes && tables.index[position - 1].name_diff >= encoded(filter.first)) return false;
    return tables.slot_at(position) && compare_fixed_part(position) != 0;
  }

  // Whether a difference tells by its code alone that it lies behind the fixed part.
  bool fixed_part_is_plain() const {
    if (filter.first.character >= code_step) return false;
    for (std::uint32_t i = 0; i < filter.first.token; ++i)
      if (filter.tokens[i].length >= code_step) return false;
    return true;
  }

  // The first position from this one on whose name matches; behind the last one when none
  // does.
  std::uint32_t next_match(std::uint32_t position) const {
    while (position < tables.count) {
      const DIST_CAT_ENTRY* slot = tables.slot_at(position);
      if (slot) {
        ++cost->filter_tests;
        const std::uint32_t token = mismatch(filter, slot->head);
        if (token == matched) break;
        position = same_up_to(slot->head, token, position);
      }
      ++position;
    }
    return position;
  }

  // The last position from this one on whose names are known to be the same up to this
  // token and with it: all of them fail where the one at this position, `name`, has failed.
  std::uint32_t same_up_to(const void* name, std::uint32_t token, std::uint32_t position) const {
    const unsigned behind = (token + 1) * code_step;
    if (tables.index[position].name_diff < behind || !codes_are_plain(name, token)) return position;
    while (position < tables.count && tables.index[position].name_diff >= behind) ++position;
    return position;
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
    if (size - used < sizeof entry)
      std::memcpy(bytes + used, &entry, size - used);
    else
      std::memcpy(bytes + used, &entry, sizeof entry);
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
  const bool plain_codes = walk.fixed_part_is_plain();
  list_area area{static_cast<unsigned char*>(list), size, count};
  // The next match may lie behind the last name with the fixed part: only the end of a run
  // asks for it.
  for (std::uint32_t position = walk.next_match(walk.first_candidate()); position < tables.count;
       position = walk.next_match(position)) {
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
