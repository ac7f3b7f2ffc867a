// Whether the tables of targets in shared memory hold together.
//
// What must be so whenever no call is running:
//   1. Each of the two indexes holds every number from 1 to the size of the table once.
//   2. The used part of each index, as long as the count of targets, is in its order.
//   3. The free parts behind hold the same numbers in the same order.
//   4. A slot is marked as in use if and only if its number stands in the used part,
//      and the used parts hold the same numbers.
#include "memory/table_verdict.h"
#include "memory/target_order.h"
#include "memory/trace.h"

namespace zvrdb::memory {
namespace {

template <class Order>
bool index_sound(void* task, const Order& order, const char* name, std::uint32_t size, std::uint32_t used,
                 const verdict& to) {
  // 1 seen in the used part, 2 in the free part.
  const seen_numbers seen(task, size);
  if (!seen.marks) return to.unsound("no memory to check the %s index", name);
  for (std::uint32_t i = 0; i < size; ++i) {
    const std::uint32_t number = order.number_at(i);
    if (number == 0 || number > size)
      return to.unsound("%s index, entry %u: number %u is out of bounds", name, i, number);
    if (seen.marks[number] != 0)
      return to.unsound("%s index, entry %u: number %u stands twice", name, i, number);
    seen.marks[number] = i < used ? 1 : 2;
    if ((trg_slot(order.tcb, number)->in_use == 1) != (i < used))
      return to.unsound("%s index, entry %u: slot %u is %smarked as in use", name, i, number,
                        i < used ? "not " : "");
  }
  order_text before;
  order_text text;
  for (std::uint32_t i = 0; i < used; ++i) {
    order.text_of(order.number_at(i), &text);
    if (i > 0 && co_collate(task, before.text, text.text) > 0)
      return to.unsound("%s index, entry %u: \"%.40s\" stands behind \"%.40s\"", name, i, text.text,
                        before.text);
    before = text;
  }
  return true;
}

}  // namespace

bool tables_sound(void* task, char* reason, std::size_t reason_size) {
  const trace_bracket bracket(task, __func__);
  const verdict to{reason, reason_size};
  if (reason && reason_size > 0) reason[0] = 0;
  DBR_TCB* tcb = tcb_of(task);
  if (!tables_mapped(tcb)) return to.unsound("%s", "the tables are not mapped");
  const DBR_CNTL& cntl = *tcb->cntl;
  const std::uint32_t size = trg_table_size(tcb);
  const std::uint32_t used = cntl.num_trgs_actual;
  if (size != cntl.num_trgs_allowed)
    return to.unsound("tables of %u targets for %u allowed", size, cntl.num_trgs_allowed);
  if (used > size) return to.unsound("%u targets in tables of %u", used, size);
  if (!index_sound(task, name_order{tcb}, "name", size, used, to)) return false;
  if (!index_sound(task, dsu_order{tcb}, "DSU", size, used, to)) return false;
  for (std::uint32_t i = used; i < size; ++i)
    if (tcb->name_index[i].trg_index != tcb->dsu_index[i])
      return to.unsound("free entry %u: number %u by name, %u by DSU name", i, tcb->name_index[i].trg_index,
                        tcb->dsu_index[i]);
  return true;
}

}  // namespace zvrdb::memory
