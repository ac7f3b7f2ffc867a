#include <initializer_list>

#include "cmstatus/cm_status.h"
#include "keyed/keyed.h"
#include "memory/trace.h"
#include "recfile/recfile.h"
#include "targets/focal_points.h"
#include "targets/index_order.h"
#include "targets/target_access.h"
#include "targets/targets.h"

namespace zvrdb::targets {
namespace {

// Position of the target's number in the DSU index, or -1.
std::int64_t find_in_dsu_index(void* task, const TRG_CNTL_ENTRY* slot, std::uint32_t number) {
  char dsu[memory::dsu_text_len + 1];
  memory::dsu_text_of(tcb_of(task), slot, dsu);
  const std::int64_t position = memory::find_dsu_of(task, dsu, number);
  if (position >= 0) return position;
  // The order may be one of an earlier local_dsu.
  memory::sort_dsu(task);
  memory::dsu_text_of(tcb_of(task), slot, dsu);
  return memory::find_dsu_of(task, dsu, number);
}

std::int16_t delete_record(void* task, std::uint32_t db_id, std::uint32_t number) {
  target_key key{db_id, number, 0};
  return keyed::del_keyed(task, db_id, tcb_of(task)->trg_file, &key);
}

// The parameters and the hardware go with the target; its shadow record stays and
// passes to the next owner of the number.
std::int16_t delete_records(void* task, std::uint32_t number) {
  for (const std::uint32_t db_id : {DB_PRM, DB_THW}) {
    const std::int16_t rc = delete_record(task, db_id, number);
    if (rc != DBE_OK && rc != DBE_NOT_FOUND) return rc;
  }
  return delete_record(task, DB_TRG, number);
}

// The target's CM status and its records go together.  A client's own transaction on targets
// takes the records in; the CM status has gone for good then.
std::int16_t delete_from_files(void* task, const TRG_CNTL_ENTRY* slot, std::uint32_t number) {
  // Only local targets have CM status.  Pairs of one that has ceased to be local stay,
  // and pass to the next owner of the number.
  const bool local = slot->trg_type & type_local;
  if (tcb_of(task)->trans_active[DB_TRG] != 0) {
    if (local && cmstatus::del_target_cms(task, slot->trg_name) != DBE_OK) return DBE_IO_ERROR;
    return delete_records(task, number);
  }
  bool pairs = false;
  if (local && cmstatus::begin_del_target_cms(task, slot->trg_name, &pairs) != DBE_OK) return DBE_IO_ERROR;
  std::int16_t rc = recfile::start_trans(task, DB_TRG);
  if (rc == DBE_OK) rc = delete_records(task, number);
  // Without its own record the rest goes all the same.
  const bool lacks_record = rc == DBE_NOT_FOUND;
  if (lacks_record) rc = DBE_OK;
  if (pairs) {
    // Pairs without a target would pass to the next owner of its number.
    const recfile::both_ends ended = recfile::end_both(task, DB_CMS, DB_TRG, rc);
    rc = ended.first != DBE_OK ? ended.first : ended.second;
  } else if (rc == DBE_OK) {
    rc = recfile::commit(task, DB_TRG);
  } else {
    recfile::rollback(task, DB_TRG);
  }
  return rc == DBE_OK && lacks_record ? static_cast<std::int16_t>(DBE_NOT_FOUND) : rc;
}

// The number becomes the head of both free lists.
void free_number(DBR_TCB* tcb, TRG_CNTL_ENTRY* slot, std::uint32_t name_position,
                 std::uint32_t dsu_position) {
  DBR_CNTL* cntl = tcb->cntl;
  const std::uint32_t last = memory::trg_count(tcb) - 1;
  move_entry(tcb->name_index, name_position, last);
  move_entry(tcb->dsu_index, dsu_position, last);
  slot->in_use = 0;
  cntl->num_trgs_actual = last;
  if ((slot->trg_type & type_local) && cntl->num_ltrg_actual > 0) --cntl->num_ltrg_actual;
}

}  // namespace

std::int16_t del_trg(void* task, std::uint16_t num_keys, const void* const* keys) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "del_trg", &rc);
  const char* name = name_key(num_keys, keys);
  std::int64_t name_position = -1;
  TRG_CNTL_ENTRY* slot = name ? slot_and_position_of(task, name, &name_position) : nullptr;
  const std::uint32_t number = slot ? tcb_of(task)->name_index[name_position].trg_index : 0;
  const std::int64_t dsu_position = slot ? find_in_dsu_index(task, slot, number) : -1;
  if (!slot || dsu_position < 0) {
    trace.quitting();
    return rc = DBE_NOT_FOUND;
  }
  rc = delete_from_files(task, slot, number);
  if (rc != DBE_OK) {
    trace.quitting();
    return rc;
  }
  free_number(tcb_of(task), slot, static_cast<std::uint32_t>(name_position),
              static_cast<std::uint32_t>(dsu_position));
  if ((slot->trg_mode & mode_focal_point) && !remove_focal_point(task, slot->trg_name)) {
    log_missing_focal_point(task, slot->trg_name);
    trace.quitting();
    return rc = DBE_IO_ERROR;
  }
  DBR_CNTL* cntl = tcb_of(task)->cntl;
  if ((slot->trg_type & (type_server | type_base)) && cntl->num_srv_actual > 0) --cntl->num_srv_actual;
  return rc;
}

}  // namespace zvrdb::targets
