// States of a change file on all targets, and of all change files on a target.
#include <algorithm>
#include <atomic>
#include <cstring>

#include "cmstatus/change_file_lookup.h"
#include "cmstatus/cm_status.h"
#include "cmstatus/stored_records.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"

namespace zvrdb::cmstatus {
namespace {

constexpr unsigned char no_status = 15;
constexpr std::uint32_t more_room_for_list = 76;
constexpr std::uint32_t number_bits = 8;

// A target without a place in the list is left out; so is 0, which is no target.
std::int16_t fill_list(const record_body& body, std::uint8_t* list, std::uint32_t length) {
  const std::uint32_t entries = entries_of_file(body);
  if (length < entries) return DBE_LIST_TOO_SMALL;
  for (std::uint32_t position = 0; position < entries; ++position) {
    const target_status entry = target_status_at(body, position);
    if (entry.trg_index != 0 && entry.trg_index < length) list[entry.trg_index] = entry.status;
  }
  return DBE_OK;
}

std::int16_t list_of_change_file(void* task, const void* cf_name, std::uint8_t* list, std::uint32_t length,
                                 default_status_rule* rule) {
  std::uint16_t cf_number = 0;
  std::uint8_t cf_flags = 0;
  std::int16_t rc = find_change_file(task, cf_name, &cf_number, &cf_flags);
  rule->by_change_file = (cf_flags & flag_default_status) != 0;
  if (rc != DBE_OK) return rc;
  rc = locate(task, by_cat, cf_number);
  if (rc == DBE_NOT_FOUND) return DBE_OK;
  if (rc != DBE_OK) return rc;
  image_area image = file_area(task, "CM_BY_CAT", more_room_for_list);
  rc = read_image(task, &image);
  return rc == DBE_OK ? fill_list(image.body, list, length) : rc;
}

template <class Field>
Field read_shared(Field& field) {
  return std::atomic_ref<Field>(field).load(std::memory_order_relaxed);
}

// Whether a slot holds a local target, read while others may write it.  A name that
// begins with four bytes of ones marks a slot without one.
bool is_local_slot(TRG_CNTL_ENTRY& slot) {
  constexpr std::size_t mark_len = 4;
  constexpr auto mark = static_cast<char>(0xFF);
  std::size_t ones = 0;
  while (ones < mark_len && read_shared(slot.trg_name[ones]) == mark) ++ones;
  return ones < mark_len && (read_shared(slot.trg_type) & memory::trg_type_local) != 0;
}

}  // namespace

std::int16_t cm_by_cat(void* task, const void* cf_name, std::uint8_t* list, std::uint32_t length,
                       default_status_rule* rule) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  std::memset(list, no_status, length);
  DBR_TCB* tcb = memory::tcb_of(task);
  *rule = {};
  rule->by_authorization = default_for_all(task);
  rule->slots = tcb->trg_cntl;
  rule->slot_count = memory::trg_table_size(tcb);
  rc = list_of_change_file(task, cf_name, list, length, rule);
  if (rc != DBE_OK) bracket.quitting();
  return rc;
}

void add_default_status(void* task, std::uint8_t* list, std::uint32_t length,
                        const default_status_rule& rule) {
  const trace_bracket bracket(task, __func__);
  if (!rule.by_authorization && !rule.by_change_file) return;
  DBR_TCB* tcb = memory::tcb_of(task);
  // Another segment may have been mapped since, elsewhere or, with fewer slots, in the place
  // of the one that was looked at.
  if (!tcb || tcb->trg_cntl != rule.slots) return;
  const std::uint32_t slots = std::min(rule.slot_count, memory::trg_table_size(tcb));
  for (std::uint32_t number = 1; number < length && number <= slots; ++number)
    if (list[number] == no_status && is_local_slot(rule.slots[number - 1])) list[number] = default_status;
}

std::int16_t cm_by_trg(void* task, const char* target, void* list, std::uint32_t length,
                       std::uint32_t* count) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  *count = 0;
  std::memset(list, no_status, length);
  std::uint32_t trg_index = 0;
  if (memory::get_trg_index(task, target, &trg_index) != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  rc = locate(task, by_trg, trg_index);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  image_area image = target_area(task, "CM_BY_TRG");
  rc = read_image(task, &image);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  auto* out = static_cast<unsigned char*>(list);
  std::uint32_t left = length;
  const record_body& body = image.body;
  for (std::uint32_t offset = 0; offset < body.length; offset += target_entry_len) {
    const std::uint16_t cf_number = cat_index_at(body, offset);
    if (cf_number == free_entry) continue;
    const std::uint32_t entry = std::uint32_t{cf_number} << number_bits | body.bytes[offset + entry_status];
    if (left < sizeof entry) return rc = DBE_LIST_TOO_SMALL;
    std::memcpy(out, &entry, sizeof entry);
    out += sizeof entry;
    left -= static_cast<std::uint32_t>(sizeof entry);
    ++*count;
  }
  return rc;
}

}  // namespace zvrdb::cmstatus
