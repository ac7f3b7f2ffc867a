#include "targets/target_access.h"

#include <zvrco/zvrco.h>

#include <cstring>

#include "memory/codes.h"

namespace zvrdb::targets {

DBR_TCB* tcb_of(void* task) {
  return static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb);
}

target_name name_from(const void* source, std::size_t source_len) {
  target_name name{};
  const std::size_t n = strnlen(static_cast<const char*>(source), source_len);
  name.cut = n >= name_len;
  std::memcpy(name.text, source, name.cut ? name_len - 1 : n);
  return name;
}

const char* name_key(std::uint16_t num_keys, const void* const* keys) {
  if (num_keys == 0 || !keys) return nullptr;
  return static_cast<const char*>(keys[0]);
}

TRG_CNTL_ENTRY* slot_at(DBR_TCB* tcb, std::int64_t position) {
  if (position < 0 || position >= memory::trg_count(tcb)) return nullptr;
  return memory::trg_slot(tcb, tcb->name_index[position].trg_index);
}

TRG_CNTL_ENTRY* slot_of(void* task, const char* name, std::uint32_t* number) {
  const std::uint32_t found = memory::number_of_name(task, name);
  if (number) *number = found;
  return memory::trg_slot(tcb_of(task), found);
}

TRG_CNTL_ENTRY* slot_and_position_of(void* task, const char* name, std::int64_t* position) {
  *position = memory::find_name(task, name);
  return slot_at(tcb_of(task), *position);
}

std::uint32_t server_number(void* task, const char* srv_name, std::uint32_t own_number) {
  const target_name server = name_from(srv_name, name_len);
  std::uint32_t number = own_number;
  if (!server.text[0] || server.cut || memory::get_trg_index(task, server.text, &number) != DBE_OK)
    return own_number;
  return number;
}

void apply_local_dsu(const DBR_TCB* tcb, std::uint8_t trg_type, char* rgn) {
  if ((trg_type & type_local) && tcb->cntl->local_dsu[0]) std::memcpy(rgn, tcb->cntl->local_dsu, 8);
}

}  // namespace zvrdb::targets
