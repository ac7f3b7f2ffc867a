// Whether the tables of change files in shared memory hold together.
//
// What must be so whenever no call is running:
//   1. Slot n of DIST_CAT, n below num_cat_inited, bears the number n and is free or in
//      use; there are num_cat_actual in use, and no more slots than the tables hold.
//   2. Each slot in use stands exactly once in the used part of CAT_CNTL, a free one not
//      at all.
//   3. CAT_CNTL is in order of names, no two of which are equal to the last byte.
//   4. name_diff of each entry tells where its name differs from the next one; the last
//      one's is 0.  This is judged where both names are plain: only there is the smaller
//      of two values, which a deletion leaves behind, always the right one.
#include "memory/catalog_tables.h"
#include "memory/cf_name.h"
#include "memory/table_verdict.h"
#include "memory/trace.h"

namespace zvrdb::memory {
namespace {

constexpr std::uint32_t longest_plain_token = 15;  // characters that do not spill in name_diff

// Tokens that follow one another from the start of the text area, none of them long.
bool is_plain(const unsigned char* name) {
  std::uint32_t end = 0;
  for (std::uint32_t i = 0; i < cf_token_count; ++i) {
    const cf_token token = token_of(name, i);
    if (!token.present) return true;
    if (name[i] != end || token.length > longest_plain_token) return false;
    end += token.length + 1;
  }
  return true;
}

bool slots_sound(const catalog_tables& tables, const verdict& to) {
  std::uint32_t in_use = 0;
  for (std::uint32_t number = 0; number < tables.slot_count; ++number) {
    const DIST_CAT_ENTRY* slot = tables.slot(number);
    if (slot->cf_number != number) return to.unsound("slot %u bears number %u", number, slot->cf_number);
    if (slot->free_flag > 1) return to.unsound("slot %u is neither free nor in use", number);
    if (slot->free_flag == 0) ++in_use;
  }
  return in_use == tables.count || to.unsound("%u slots in use, %u change files", in_use, tables.count);
}

bool index_sound(void* task, const catalog_tables& tables, const verdict& to) {
  const seen_numbers seen(task, tables.slot_count);
  if (!seen.marks) return to.unsound("%s", "no memory to check the catalog's index");
  const DIST_CAT_ENTRY* before = nullptr;
  for (std::uint32_t i = 0; i < tables.count; ++i) {
    const std::uint16_t number = tables.index[i].dist_idx;
    const DIST_CAT_ENTRY* slot = tables.slot_at(i);
    if (!slot) return to.unsound("entry %u: slot %u is out of bounds", i, number);
    if (slot->free_flag != 0) return to.unsound("entry %u: slot %u is free", i, number);
    if (seen.marks[number] != 0) return to.unsound("entry %u: slot %u stands twice", i, number);
    seen.marks[number] = 1;
    if (before && compare_cf_names(before->head, slot->head) >= 0)
      return to.unsound("entry %u: \"%.40s\" stands behind \"%.40s\"", i,
                        reinterpret_cast<const char*>(slot->head) + cf_text_offset,
                        reinterpret_cast<const char*>(before->head) + cf_text_offset);
    before = slot;
  }
  return true;
}

bool differences_sound(void* task, const catalog_tables& tables, const verdict& to) {
  for (std::uint32_t i = 0; i < tables.count; ++i) {
    const unsigned told = tables.index[i].name_diff;
    const unsigned char* name = tables.slot_at(i)->head;
    if (i + 1 == tables.count) return told == 0 || to.unsound("the last entry's name_diff is %u", told);
    const unsigned char* next = tables.slot_at(i + 1)->head;
    if (!is_plain(name) || !is_plain(next)) continue;
    const unsigned real = encoded_name_diff(task, name, next);
    if (told != real) return to.unsound("entry %u: name_diff is %u and should be %u", i, told, real);
  }
  return true;
}

}  // namespace

bool catalog_sound(void* task, char* reason, std::size_t reason_size) {
  const trace_bracket bracket(task, __func__);
  const verdict to{reason, reason_size};
  if (reason && reason_size > 0) reason[0] = 0;
  DBR_TCB* tcb = tcb_of(task);
  if (!tables_mapped(tcb)) return to.unsound("%s", "the tables are not mapped");
  const DBR_CNTL& cntl = *tcb->cntl;
  const std::uint32_t size = cat_table_size(tcb);
  if (size != cntl.num_cat_alloc)
    return to.unsound("tables of %u change files for %u allocated", size, cntl.num_cat_alloc);
  if (cntl.num_cat_inited > size) return to.unsound("%u slots in tables of %u", cntl.num_cat_inited, size);
  if (cntl.num_cat_actual > size)
    return to.unsound("%u change files in tables of %u", cntl.num_cat_actual, size);
  const catalog_tables tables = catalog_of(tcb);
  return slots_sound(tables, to) && index_sound(task, tables, to) && differences_sound(task, tables, to);
}

}  // namespace zvrdb::memory
