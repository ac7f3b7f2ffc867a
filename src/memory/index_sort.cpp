// Sorting of the indexes of targets and change files, with the order as an argument.
#include <cstring>

#include "memory/catalog_tables.h"
#include "memory/heap_sort.h"
#include "memory/target_order.h"
#include "memory/trace.h"

namespace zvrdb::memory {
namespace {

inline std::uint32_t number_of(const NAME_INDEX_ENTRY& entry) {
  return entry.trg_index;
}
inline std::uint32_t number_of(std::uint32_t entry) {
  return entry;
}

// Entries that the order calls equal are put in order of their bytes, then of their
// numbers, so that a sort gives the same index in every process.
template <class Order>
struct target_below {
  void* task;
  Order order;

  template <class Entry>
  bool operator()(const Entry& a, const Entry& b) const {
    order_text text_a;
    order_text text_b;
    order.text_of(number_of(a), &text_a);
    order.text_of(number_of(b), &text_b);
    int compared = co_collate(task, text_a.text, text_b.text);
    if (compared == 0) compared = std::strcmp(text_a.text, text_b.text);
    return compared < 0 || (compared == 0 && number_of(a) < number_of(b));
  }
};

// An entry that leads nowhere comes first, where no search follows it.  Two of one name
// are in a damaged file only.
struct change_file_below {
  const catalog_tables& tables;

  bool operator()(const CAT_CNTL_ENTRY& a, const CAT_CNTL_ENTRY& b) const {
    const DIST_CAT_ENTRY* slot_a = tables.slot(a.dist_idx);
    const DIST_CAT_ENTRY* slot_b = tables.slot(b.dist_idx);
    if (!slot_a || !slot_b) return !slot_a && slot_b;
    const int compared = compare_cf_names(slot_a->head, slot_b->head);
    return compared < 0 || (compared == 0 && a.dist_idx < b.dist_idx);
  }
};

}  // namespace

void sort_names(void* task) {
  const trace_bracket bracket(task, __func__);
  DBR_TCB* tcb = tcb_of(task);
  if (!tables_mapped(tcb)) return bracket.quitting();
  sort_entries(tcb->name_index, trg_count(tcb), target_below<name_order>{task, {tcb}});
}

void sort_dsu(void* task) {
  const trace_bracket bracket(task, __func__);
  DBR_TCB* tcb = tcb_of(task);
  if (!tables_mapped(tcb)) return bracket.quitting();
  const std::uint32_t count = trg_count(tcb);
  // All writing comes before the first compare.
  for (std::uint32_t i = 0; i < count; ++i) {
    TRG_CNTL_ENTRY* slot = trg_slot(tcb, tcb->dsu_index[i]);
    if (slot && (slot->trg_type & trg_type_local) != 0 && tcb->cntl->local_dsu[0] != 0)
      std::memcpy(slot->rgn, tcb->cntl->local_dsu, sizeof slot->rgn);
  }
  sort_entries(tcb->dsu_index, count, target_below<dsu_order>{task, {tcb}});
}

void sort_cat(void* task) {
  const trace_bracket bracket(task, __func__);
  const catalog_tables tables = catalog_of(tcb_of(task));
  sort_entries(tables.index, tables.count, change_file_below{tables});
}

}  // namespace zvrdb::memory
