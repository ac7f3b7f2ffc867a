#include <zvrdb/records.h>

#include <algorithm>
#include <cstring>

#include "keyed/keyed.h"
#include "memory/copy_out.h"
#include "memory/trace.h"
#include "targets/target_access.h"
#include "targets/target_limits.h"
#include "targets/targets.h"

namespace zvrdb::targets {
namespace {

// Reads the whole record from the file; what memory knows better replaces what was
// stored.  The caller's buffer is longer than the head.
std::int16_t read_from_file(void* task, const TRG_CNTL_ENTRY* slot, std::uint32_t number,
                            unsigned char* buffer, std::uint16_t length) {
  DBR_TCB* tcb = tcb_of(task);
  target_key key{DB_TRG, number, 0};
  const std::int16_t rc = keyed::get_keyed(task, DB_TRG, tcb->trg_file, &key, buffer, length);
  if (rc != DBE_OK) return rc;
  apply_local_dsu(tcb, buffer[offsetof(TRG_CNTL_ENTRY, trg_type)],
                  reinterpret_cast<char*>(buffer) + offsetof(TRG_CNTL_ENTRY, rgn));
  std::memcpy(buffer + offsetof(TRG_CNTL_ENTRY, trg_status), slot->trg_status, sizeof slot->trg_status);
  return rc;
}

// The local server of an installation that is a base system calls itself one.
void report_as_base_system(void* task, const TRG_CNTL_ENTRY* slot, unsigned char* buffer) {
  constexpr std::uint8_t local_server = type_local | type_server;
  if ((slot->trg_type & local_server) != local_server) return;
  const std::uint8_t kind = configured_kind(task);
  if (kind != DB_CFG_BASE && kind != DB_CFG_REMOTE_ADMIN_BASE) return;
  ZVR_TRACE(task, 2, 2, "Changing from Server to Base system");
  unsigned char* type = buffer + offsetof(TRG_CNTL_ENTRY, trg_type);
  *type = static_cast<unsigned char>((*type & ~type_server) | type_base);
}

}  // namespace

std::int16_t get_trg(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "get_trg", &rc);
  const char* name = name_key(num_keys, keys);
  std::uint32_t number = 0;
  TRG_CNTL_ENTRY* slot = name ? slot_of(task, name, &number) : nullptr;
  if (!slot) {
    trace.quitting();
    return rc = DBE_NOT_FOUND;
  }
  return rc = read_target(task, slot, number, buffer, length);
}

std::int16_t read_target(void* task, TRG_CNTL_ENTRY* slot, std::uint32_t number, void* buffer,
                         std::uint16_t length) {
  auto* out = static_cast<unsigned char*>(buffer);
  std::int16_t rc = DBE_OK;
  if (length > head_len) {
    rc = read_from_file(task, slot, number, out, length);
  } else {
    apply_local_dsu(tcb_of(task), slot->trg_type, slot->rgn);
    memory::copy_out(out, slot, length);
  }
  if (rc == DBE_OK && length > offsetof(TRG_CNTL_ENTRY, trg_type)) report_as_base_system(task, slot, out);
  return rc;
}

}  // namespace zvrdb::targets
