#include <cstring>

#include "keyed/keyed.h"
#include "memory/trace.h"
#include "targets/focal_points.h"
#include "targets/index_order.h"
#include "targets/target_access.h"
#include "targets/targets.h"

namespace zvrdb::targets {
namespace {

void set_name(char* field, const target_name& name) {
  std::memcpy(field, name.text, name_len);
}

// Reads the record, gives it and its slot the new name, and writes it.  The table
// stays renamed when the write fails.
std::int16_t rename_record(void* task, std::uint32_t position, const target_name& old_name,
                           const target_name& new_name, char* record) {
  DBR_TCB* tcb = tcb_of(task);
  TRG_CNTL_ENTRY* slot = slot_at(tcb, position);
  const std::uint32_t number = tcb->name_index[position].trg_index;
  target_key key{DB_TRG, number, 0};
  if (keyed::get_keyed(task, DB_TRG, tcb->trg_file, &key, record, trg_record_len) != DBE_OK) {
    ZVR_TRACE(task, 5, 2, "CONFIG record not found for target number %hu",
              static_cast<unsigned short>(number));
    return DBE_IO_ERROR;
  }
  set_name(record, new_name);
  if (std::strncmp(record + srv_name_offset, old_name.text, name_len) == 0) {
    ZVR_TRACE(task, 2, 2, "Changing local server name!");
    set_name(record + srv_name_offset, new_name);
  }
  ++tcb->cntl->renames;
  set_name(slot->trg_name, new_name);
  put_in_order(tcb, tcb->name_index, position, [&] { return memory::locate_name(task, new_name.text); });
  key = {DB_TRG, number, 0};
  const std::int16_t rc = keyed::put_keyed(task, DB_TRG, tcb->trg_file, &key, record, trg_record_len);
  if (rc != DBE_OK && rc != DBE_RECORD_REPLACED) return rc;
  // The link was written anew from the server's name, which may be another's by now.
  slot->srv_num = server_number(task, record + srv_name_offset, number);
  return DBE_OK;
}

}  // namespace

std::int16_t rename_trg(void* task, const char* old_name, const char* new_name) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "rename_trg", &rc);
  std::int64_t position = -1;
  TRG_CNTL_ENTRY* slot = slot_and_position_of(task, old_name, &position);
  if (!slot) {
    trace.quitting();
    return rc = DBE_NOT_FOUND;
  }
  auto* record = static_cast<char*>(co_malloc(task, trg_record_len, CO_MEM_PRIVATE, "REN_TRG"));
  if (!record) {
    co_log2(task, 36355, 0, 0, 0, "%s", "temp ext buffer");
    trace.quitting();
    return rc = DBE_IO_ERROR;
  }
  ++tcb_of(task)->cntl->gen[DB_CMS];
  const target_name from = name_from(slot->trg_name, name_len);
  const target_name to = name_from(new_name, name_len);
  rc = rename_record(task, static_cast<std::uint32_t>(position), from, to, record);
  co_free_int(task, record, "rename_trg");
  if (rc == DBE_OK && (slot->trg_mode & mode_focal_point) && !rename_focal_point(task, from.text, to.text)) {
    log_missing_focal_point(task, from.text);
    rc = DBE_IO_ERROR;
  }
  if (rc != DBE_OK) trace.quitting();
  return rc;
}

}  // namespace zvrdb::targets
