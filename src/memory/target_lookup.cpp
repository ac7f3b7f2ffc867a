// Searches of the two indexes of targets.
#include <algorithm>
#include <cstring>

#include "memory/codes.h"
#include "memory/name_hints.h"
#include "memory/target_order.h"
#include "memory/trace.h"

namespace zvrdb::memory {
namespace {

constexpr std::uint32_t number_without_status = 65535;

// First position whose text is above `text` (`upper`), or not below it.
template <class Order>
std::uint32_t bound(void* task, const Order& order, const char* text, bool upper) {
  std::uint32_t low = 0;
  std::uint32_t high = trg_count(order.tcb);
  order_text entry;
  while (low < high) {
    const std::uint32_t middle = low + (high - low) / 2;
    order.text_of(order.number_at(middle), &entry);
    const int compared = co_collate(task, entry.text, text);
    if (compared < 0 || (upper && compared == 0))
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

// Position of the entry with these very bytes among those that the collation calls
// equal, which begin at `first`; -1 when there is none.
template <class Order>
std::int64_t same_bytes(void* task, const Order& order, const char* text, std::uint32_t first) {
  const std::uint32_t count = trg_count(order.tcb);
  order_text entry;
  for (std::uint32_t position = first; position < count; ++position) {
    order.text_of(order.number_at(position), &entry);
    if (std::strcmp(entry.text, text) == 0)
      return trg_slot(order.tcb, order.number_at(position)) ? std::int64_t{position} : -1;
    if (co_collate(task, entry.text, text) != 0) return -1;
  }
  return -1;
}

template <class Order>
std::int64_t find(void* task, const char* text) {
  DBR_TCB* tcb = tcb_of(task);
  if (!text || !tables_mapped(tcb)) return -1;
  const Order order{tcb};
  return same_bytes(task, order, text, bound(task, order, text, false));
}

template <class Order>
std::int64_t locate(void* task, const char* text) {
  DBR_TCB* tcb = tcb_of(task);
  if (!text || !tables_mapped(tcb)) return -1;
  const Order order{tcb};
  const std::uint32_t first = bound(task, order, text, false);
  if (first == trg_count(tcb)) return -1;
  const std::int64_t same = same_bytes(task, order, text, first);
  return same >= 0 ? same : std::int64_t{first};
}

}  // namespace

TRG_CNTL_ENTRY* trg_slot(DBR_TCB* tcb, std::uint32_t number) {
  if (number == 0 || number > trg_table_size(tcb)) return nullptr;
  return tcb->trg_cntl + (number - 1);
}

std::uint32_t trg_count(const DBR_TCB* tcb) {
  const std::uint32_t size = trg_table_size(tcb);
  return size == 0 ? 0 : std::min(tcb->cntl->num_trgs_actual, size);
}

std::int64_t find_name(void* task, const char* name) {
  if (!name || strnlen(name, trg_name_len) == trg_name_len) return -1;
  return find<name_order>(task, name);
}

std::uint32_t number_of_name(void* task, const char* name) {
  DBR_TCB* tcb = tcb_of(task);
  if (!name || !tcb) return 0;
  const std::size_t length = strnlen(name, trg_name_len);
  if (length == trg_name_len) return 0;
  if (const std::uint32_t number = hinted_number(tcb, name, length)) return number;
  const std::int64_t position = find<name_order>(task, name);
  if (position < 0) return 0;
  const std::uint32_t number = tcb->name_index[position].trg_index;
  keep_hint(tcb, name, length, number);
  return number;
}

std::int64_t locate_name(void* task, const char* name) {
  return locate<name_order>(task, name);
}

std::int64_t find_dsu(void* task, const char* text) {
  return find<dsu_order>(task, text);
}

std::int64_t locate_dsu(void* task, const char* text) {
  return locate<dsu_order>(task, text);
}

std::int64_t find_dsu_of(void* task, const char* text, std::uint32_t number) {
  DBR_TCB* tcb = tcb_of(task);
  if (!text || !trg_slot(tcb, number)) return -1;
  const dsu_order order{tcb};
  const std::uint32_t* begin = tcb->dsu_index + bound(task, order, text, false);
  const std::uint32_t* end = tcb->dsu_index + bound(task, order, text, true);
  // Many targets may share one text (none at all is usual), so the run is walked by
  // number and its texts are not looked at again.
  const std::uint32_t* found = begin < end ? std::find(begin, end, number) : end;
  return found == end ? -1 : found - tcb->dsu_index;
}

void dsu_text(char* out, const char* rgn, const char* ren) {
  constexpr std::size_t part_len = 8;
  std::memset(out, ' ', dsu_text_len);
  const std::size_t rgn_len = strnlen(rgn, part_len);
  const std::size_t ren_len = strnlen(ren, part_len);
  std::memcpy(out + part_len - rgn_len, rgn, rgn_len);
  out[part_len] = '.';
  std::memcpy(out + dsu_text_len - ren_len, ren, ren_len);
  out[dsu_text_len] = 0;
}

void dsu_text_of(DBR_TCB* tcb, const TRG_CNTL_ENTRY* entry, char* out) {
  const bool takes_local = (entry->trg_type & trg_type_local) != 0 && tcb->cntl->local_dsu[0] != 0;
  dsu_text(out, takes_local ? tcb->cntl->local_dsu : entry->rgn, entry->ren);
}

std::int16_t get_trg_index(void* task, const char* name, std::uint32_t* number) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const std::uint32_t found = number_of_name(task, name);
  if (found == 0) {
    ZVR_TRACE(task, 2, 2, "%s", "target not found");
    bracket.quitting();
    return rc = DBE_NO_TARGET;
  }
  *number = found;
  ZVR_TRACE(task, 2, 2, "status_offset = %lu", static_cast<unsigned long>(*number));
  if (*number == number_without_status) rc = DBE_NO_STATUS;
  return rc;
}

std::int16_t get_trg_name(void* task, char* name, std::uint32_t number) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const TRG_CNTL_ENTRY* slot = trg_slot(tcb_of(task), number);
  if (!slot) {
    ZVR_TRACE(task, 2, 2, "%s", "pindex passed in out of range");
    bracket.quitting();
    return rc = DBE_NO_TARGET;
  }
  std::memcpy(name, slot->trg_name, trg_name_len);
  return rc;
}

}  // namespace zvrdb::memory
