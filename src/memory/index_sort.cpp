// Sorting of the two indexes of targets, in place and with the order as an argument.
#include <cstring>
#include <utility>

#include "memory/target_order.h"
#include "memory/trace.h"

namespace zvrdb::memory {
namespace {

// Entries that the order calls equal are put in order of their bytes, then of their
// numbers, so that a sort gives the same index in every process.
template <class Order>
bool below(void* task, const Order& order, std::uint32_t a, std::uint32_t b) {
  order_text text_a;
  order_text text_b;
  order.text_of(a, &text_a);
  order.text_of(b, &text_b);
  int compared = co_collate(task, text_a.text, text_b.text);
  if (compared == 0) compared = std::strcmp(text_a.text, text_b.text);
  return compared < 0 || (compared == 0 && a < b);
}

inline std::uint32_t number_of(const NAME_INDEX_ENTRY& entry) {
  return entry.trg_index;
}
inline std::uint32_t number_of(std::uint32_t entry) {
  return entry;
}

template <class Order, class Entry>
bool in_order(void* task, const Order& order, const Entry* entries, std::uint32_t count) {
  for (std::uint32_t i = 1; i < count; ++i)
    if (below(task, order, number_of(entries[i]), number_of(entries[i - 1]))) return false;
  return true;
}

// Lets the entry at the top of the heap [root, end) find its place: down along the
// greater children to the bottom, then up again.  That costs half the compares of
// stopping on the way, and compares are what a sort by collation spends its time on.
template <class Order, class Entry>
void settle(void* task, const Order& order, Entry* heap, std::uint32_t root, std::uint32_t end) {
  std::uint32_t at = root;
  for (std::uint64_t child = 2ull * at + 1; child < end; child = 2ull * at + 1) {
    auto greater = static_cast<std::uint32_t>(child);
    if (child + 1 < end && below(task, order, number_of(heap[greater]), number_of(heap[greater + 1])))
      ++greater;
    at = greater;
  }
  while (at > root && !below(task, order, number_of(heap[root]), number_of(heap[at]))) at = (at - 1) / 2;
  // Rotates the path: the root's entry to `at`, each one on the way up by one place.
  Entry moving = heap[root];
  for (;;) {
    std::swap(moving, heap[at]);
    if (at == root) return;
    at = (at - 1) / 2;
  }
}

// A heap sort: it needs no memory, and it stays inside the entries whatever the
// collation of the system answers.
template <class Order, class Entry>
void sort_entries(void* task, const Order& order, Entry* entries, std::uint32_t count) {
  if (count < 2 || in_order(task, order, entries, count)) return;
  for (std::uint32_t root = count / 2; root-- > 0;) settle(task, order, entries, root, count);
  for (std::uint32_t end = count - 1; end > 0; --end) {
    std::swap(entries[0], entries[end]);
    settle(task, order, entries, 0, end);
  }
}

}  // namespace

void sort_names(void* task) {
  const trace_bracket bracket(task, __func__);
  DBR_TCB* tcb = tcb_of(task);
  if (!tables_mapped(tcb)) return bracket.quitting();
  sort_entries(task, name_order{tcb}, tcb->name_index, trg_count(tcb));
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
  sort_entries(task, dsu_order{tcb}, tcb->dsu_index, count);
}

}  // namespace zvrdb::memory
