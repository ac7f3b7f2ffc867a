// Adding and replacing a target.
//
// The name goes into the name index before the record is written, for the conversion
// of the record turns the target's own name into its number.  The DSU index follows
// once the record is in the file.
#include <algorithm>
#include <cstring>

#include "keyed/keyed.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "targets/focal_points.h"
#include "targets/index_order.h"
#include "targets/target_access.h"
#include "targets/target_limits.h"
#include "targets/targets.h"

namespace zvrdb::targets {
namespace {

struct target_put {
  void* task;
  DBR_TCB* tcb;
  target_name name;
  TRG_CNTL_ENTRY head;  // of the caller's record; bytes that it does not have are zero
  char srv_name[name_len];
  const void* record;  // what is stored
  std::uint32_t record_len;
  char dsu[memory::dsu_text_len + 1];
  std::uint32_t name_position;  // of the target, or where it is to go
};

bool written(std::int16_t rc) {
  return rc == DBE_OK || rc == DBE_RECORD_REPLACED;
}

void take_record(target_put& put, const void* record, std::uint16_t length) {
  const auto* bytes = static_cast<const unsigned char*>(record);
  std::memcpy(&put.head, bytes, std::min<std::size_t>(length, head_len));
  if (length > srv_name_offset)
    std::memcpy(put.srv_name, bytes + srv_name_offset,
                std::min<std::size_t>(length - srv_name_offset, name_len));
  const target_name own = name_from(put.head.trg_name, name_len);
  std::memcpy(put.head.trg_name, own.text, name_len);
  put.record = record;
  put.record_len = length;
}

// A record is stored as the caller gave it, with two exceptions, for which a copy is
// made: a name that fills its field gets its NUL, and the record of a mobile client
// that ends right before its connection status gets one, or it could not be read.
std::int16_t prepare_stored(target_put& put, bool own_name_cut, void** copy) {
  const bool lacks_status =
      put.record_len == offsetof(TRG_CNTL_ENTRY, mob_conn_stat) && (put.head.trg_type & type_mobile);
  if (!own_name_cut && !lacks_status) return DBE_OK;
  const std::uint32_t length = put.record_len + (lacks_status ? 1 : 0);
  *copy = co_malloc(put.task, length, CO_MEM_PRIVATE, "PUT_TRG");
  if (!*copy) {
    co_log2(put.task, 36355, 0, 0, 0, "%s", "temp ext buffer");
    return DBE_IO_ERROR;
  }
  std::memcpy(*copy, put.record, put.record_len);
  if (own_name_cut) static_cast<char*>(*copy)[name_len - 1] = 0;
  put.record = *copy;
  put.record_len = length;
  return DBE_OK;
}

std::int16_t write_record(const target_put& put, std::uint32_t number) {
  target_key key{DB_TRG, number, 0};
  return keyed::put_keyed(put.task, DB_TRG, put.tcb->trg_file, &key, put.record, put.record_len);
}

void fill_slot(const target_put& put, TRG_CNTL_ENTRY* slot, std::uint32_t number) {
  *slot = put.head;
  slot->in_use = 1;
  apply_local_dsu(put.tcb, slot->trg_type, slot->rgn);
  slot->srv_num = server_number(put.task, put.srv_name, number);
}

std::int16_t replace_target(target_put& put) {
  DBR_CNTL* cntl = put.tcb->cntl;
  const std::uint32_t number = put.tcb->name_index[put.name_position].trg_index;
  TRG_CNTL_ENTRY* slot = memory::trg_slot(put.tcb, number);
  // A local target is counted again below, when it has been stored.
  const bool lowered = (put.head.trg_type & type_local) && cntl->num_ltrg_actual > 0;
  if (lowered) --cntl->num_ltrg_actual;
  const std::int16_t rc = write_record(put, number);
  if (!written(rc)) {
    if (lowered) ++cntl->num_ltrg_actual;
    return rc;
  }
  char old_dsu[memory::dsu_text_len + 1];
  memory::dsu_text_of(put.tcb, slot, old_dsu);
  const bool moves = std::strcmp(old_dsu, put.dsu) != 0;
  const std::int64_t dsu_position = moves ? memory::find_dsu_of(put.task, old_dsu, number) : -1;
  unsigned char status[sizeof slot->trg_status];
  std::memcpy(status, slot->trg_status, sizeof status);
  fill_slot(put, slot, number);
  std::memcpy(slot->trg_status, status, sizeof status);
  if (moves && dsu_position >= 0)
    put_in_order(put.tcb, put.tcb->dsu_index, static_cast<std::uint32_t>(dsu_position),
                 [&] { return memory::locate_dsu(put.task, put.dsu); });
  else if (moves)
    memory::sort_dsu(put.task);  // the order was stale already
  return rc;
}

// The number of a target that could not be written goes to the end of both free
// lists; the slot is as it was.
void take_back(target_put& put, TRG_CNTL_ENTRY* slot, const TRG_CNTL_ENTRY& before) {
  DBR_CNTL* cntl = put.tcb->cntl;
  --cntl->num_trgs_actual;
  const std::uint32_t last = memory::trg_table_size(put.tcb) - 1;
  move_entry(put.tcb->name_index, put.name_position, last);
  move_entry(put.tcb->dsu_index, cntl->num_trgs_actual, last);
  *slot = before;
  slot->in_use = 0;
}

std::int16_t add_target(target_put& put) {
  DBR_TCB* tcb = put.tcb;
  DBR_CNTL* cntl = tcb->cntl;
  std::int16_t rc = check_room(put.task, put.head);
  if (rc != DBE_OK) return rc;
  const std::uint32_t free_position = cntl->num_trgs_actual;
  const std::uint32_t number = tcb->name_index[free_position].trg_index;
  TRG_CNTL_ENTRY* slot = memory::trg_slot(tcb, number);
  if (!slot) return DBE_IO_ERROR;
  const TRG_CNTL_ENTRY before = *slot;
  slot->in_use = 1;
  const std::int64_t dsu_found = memory::locate_dsu(put.task, put.dsu);
  const std::uint32_t dsu_position = dsu_found < 0 ? free_position : static_cast<std::uint32_t>(dsu_found);

  move_entry(tcb->name_index, free_position, put.name_position);
  std::memcpy(slot->trg_name, put.head.trg_name, sizeof slot->trg_name);
  ++cntl->num_trgs_actual;
  fill_slot(put, slot, number);
  std::memset(slot->trg_status, 0, sizeof slot->trg_status);
  rc = write_record(put, number);
  if (!written(rc)) {
    take_back(put, slot, before);
    return rc;
  }
  move_entry(tcb->dsu_index, free_position, dsu_position);
  return rc;
}

void update_focal_point(const target_put& put) {
  if (put.head.trg_mode & mode_focal_point)
    enter_focal_point(put.task, put.name.text, put.head.rgn, put.head.ren);
  else
    remove_focal_point(put.task, put.name.text);
}

// Position of the target with this very name; where it is to go when there is none.
bool find_place(target_put& put) {
  std::int64_t position = memory::find_name(put.task, put.name.text);
  const TRG_CNTL_ENTRY* slot = slot_at(put.tcb, position);
  if (slot && std::strncmp(slot->trg_name, put.name.text, name_len) == 0) {
    put.name_position = static_cast<std::uint32_t>(position);
    return true;
  }
  position = memory::locate_name(put.task, put.name.text);
  if (position < 0) {
    ZVR_TRACE(put.task, 3, 2, "Had to reset a null trg");
    position = memory::trg_count(put.tcb);
  }
  put.name_position = static_cast<std::uint32_t>(position);
  return false;
}

}  // namespace

std::int16_t put_trg(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "put_trg", &rc);
  const char* name = name_key(num_keys, keys);
  if (!name) {
    trace.quitting();
    return rc = DBE_BAD_RECORD;
  }
  target_put put{};
  put.task = task;
  put.tcb = tcb_of(task);
  put.name = name_from(name, name_len);
  take_record(put, record, length);
  if (std::strncmp(put.head.trg_name, put.name.text, name_len) != 0) {
    ZVR_TRACE(task, 5, 2, "Name %s in the record of %s", put.head.trg_name, put.name.text);
    trace.quitting();
    return rc = DBE_BAD_RECORD;
  }
  const bool own_name_cut =
      length >= name_len && strnlen(static_cast<const char*>(record), name_len) == name_len;
  void* copy = nullptr;
  rc = prepare_stored(put, own_name_cut, &copy);
  if (rc == DBE_OK) {
    char rgn[sizeof put.head.rgn];
    std::memcpy(rgn, put.head.rgn, sizeof rgn);
    apply_local_dsu(put.tcb, put.head.trg_type, rgn);
    memory::dsu_text(put.dsu, rgn, put.head.ren);
    rc = find_place(put) ? replace_target(put) : add_target(put);
  }
  if (copy) co_free_int(task, copy, "put_trg");
  if (!written(rc)) {
    trace.quitting();
    return rc;
  }
  update_focal_point(put);
  DBR_CNTL* cntl = put.tcb->cntl;
  if (put.head.trg_type & type_local) ++cntl->num_ltrg_actual;
  // Raised on each update of a server as well; nothing lowers it again.
  if (put.head.trg_type & (type_server | type_base)) ++cntl->num_srv_actual;
  return rc;
}

}  // namespace zvrdb::targets
