// Building of the target table in a fresh, zeroed segment from the record file.
#include <algorithm>
#include <cstring>

#include "keyed/keyed.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "recfile/recfile.h"
#include "targets/focal_points.h"
#include "targets/target_access.h"
#include "targets/target_limits.h"
#include "targets/targets.h"

namespace zvrdb::targets {
namespace {

// One byte short of the server's name: the number of the link is read, but not turned
// into a name, which could fail for a link that leads out of the table.
constexpr std::uint32_t load_len = srv_name_offset + name_len - 1;

struct loading {
  void* task;
  DBR_TCB* tcb;
  std::uint32_t allowed;
  char local_name[name_len + 1];
  bool local_seen;
  target_counts counts;
};

// Until the local target is met, one place is kept for it.
bool within_limits(loading& load, const TRG_CNTL_ENTRY& record) {
  if (load.local_seen) return check_trg_limits(load.task, record, load.counts, 0) == DBE_OK;
  if ((record.trg_type & type_local) && std::strncmp(record.trg_name, load.local_name, name_len) == 0) {
    load.local_seen = true;
    return true;
  }
  return check_trg_limits(load.task, record, load.counts, 1) == DBE_OK;
}

bool counts_as_server(std::uint8_t trg_type) {
  return ((trg_type & type_server) && (trg_type & type_remote)) || (trg_type & type_base);
}

std::int16_t enter_record(loading& load, const unsigned char* record, std::uint32_t number) {
  TRG_CNTL_ENTRY head;
  std::memcpy(&head, record, sizeof head);
  head.trg_name[name_len - 1] = 0;
  TRG_CNTL_ENTRY* slot = memory::trg_slot(load.tcb, number);
  if (!slot || slot->in_use || load.counts.targets >= load.allowed) {
    co_log2(load.task, 36417, 0, 0, 0, "%s|%ld", head.trg_name, static_cast<long>(load.allowed));
    return DBE_LIMIT_EXCEEDED;
  }
  if (!within_limits(load, head)) return DBE_LIMIT_EXCEEDED;
  // A link that names no slot would be a link to nothing: the target serves itself.
  if (!memory::trg_slot(load.tcb, head.srv_num)) head.srv_num = number;
  std::memset(head.trg_status, 0, sizeof head.trg_status);
  head.in_use = 1;
  *slot = head;
  load.tcb->name_index[load.counts.targets] = {number, 0};
  load.tcb->dsu_index[load.counts.targets] = number;
  ++load.counts.targets;
  if (head.trg_type & type_local) ++load.counts.local;
  if (counts_as_server(head.trg_type)) ++load.counts.servers;
  return DBE_OK;
}

// Reads all target records in order of their numbers.  A list of keyed access would
// find each record twice, once for its key and once to read it; a full table is loaded
// in the time of one call, so each is found once here.
std::int16_t enter_all(loading& load, unsigned char* stored) {
  file_entry* file = load.tcb->trg_file;
  const recfile::reading_through ahead(file);
  target_key key{DB_TRG, 0, 0};
  for (std::int16_t rc = recfile::db_locate_surely(load.task, file, &key, recfile::KEY_GE);;
       rc = recfile::db_locate_next(load.task, file, &key)) {
    if (rc == DBE_NOT_FOUND || (rc == DBE_OK && key.db_id != DB_TRG)) return DBE_OK;
    if (rc != DBE_OK) return rc;
    std::uint32_t stored_len = keyed::external_capacity;
    rc = recfile::db_read(load.task, file, stored, &stored_len);
    if (rc != DBE_OK) return rc;
    unsigned char record[load_len] = {};
    std::uint32_t record_len = load_len;
    rc = keyed::parse_keyed(load.task, DB_TRG, stored, record, &stored_len, &record_len);
    if (rc == DBE_OK) rc = enter_record(load, record, key.number);
    if (rc != DBE_OK) return rc;
  }
}

// The numbers that no record has follow in both indexes, in rising order.
void append_free_numbers(loading& load) {
  std::uint32_t position = static_cast<std::uint32_t>(load.counts.targets);
  for (std::uint32_t number = 1; number <= load.allowed && position < load.allowed; ++number) {
    TRG_CNTL_ENTRY* slot = memory::trg_slot(load.tcb, number);
    if (slot->in_use == 1) continue;
    slot->in_use = 0;
    load.tcb->name_index[position] = {number, 0};
    load.tcb->dsu_index[position] = number;
    ++position;
  }
}

bool is_focal_point(void* task, const char* name) {
  const TRG_CNTL_ENTRY* slot = slot_at(tcb_of(task), memory::find_name(task, name));
  return slot && (slot->trg_mode & mode_focal_point);
}

// In order of the numbers, as the records were read.  The names must be sorted.
void refresh_focal_points(const loading& load) {
  keep_focal_points(load.task, is_focal_point);
  for (std::uint32_t number = 1; number <= load.allowed; ++number) {
    const TRG_CNTL_ENTRY* slot = memory::trg_slot(load.tcb, number);
    if (slot && slot->in_use == 1 && (slot->trg_mode & mode_focal_point))
      enter_focal_point(load.task, slot->trg_name, slot->rgn, slot->ren);
  }
}

std::int16_t load_table(loading& load, unsigned char* stored) {
  if (enter_all(load, stored) != DBE_OK) {
    co_log2(load.task, 36360, 0, 0, 0, "%s", "");
    return DBE_INIT_FAILED;
  }
  append_free_numbers(load);
  DBR_CNTL* cntl = load.tcb->cntl;
  cntl->num_trgs_actual = static_cast<std::uint32_t>(load.counts.targets);
  cntl->num_ltrg_actual = static_cast<std::uint32_t>(load.counts.local);
  cntl->num_srv_actual = static_cast<std::uint32_t>(load.counts.servers);
  co_log2(load.task, 36357, 0, 0, 0, "%ld", static_cast<long>(load.counts.targets));
  memory::sort_names(load.task);
  refresh_focal_points(load);
  memory::sort_dsu(load.task);
  return DBE_OK;
}

}  // namespace

std::int16_t alloc_trg(void* task) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "alloc_trg", &rc);
  DBR_CNTL* cntl = tcb_of(task)->cntl;
  if (cntl->alloc_generation == cntl->shm_generation && cntl->finitialized) return rc;
  if (!is_configured(task)) {
    // Tables of the length 0 would stay for all who come.
    co_log2(task, 36355, 0, 0, 0, "%s", "base configuration");
    return rc = DBE_INIT_FAILED;
  }
  memory::tell_count(&cntl->num_trgs_allowed, std::min(configured_targets(task), most_targets));
  cntl->trg_cntl_len = cntl->num_trgs_allowed * head_len;
  cntl->name_index_len = cntl->num_trgs_allowed * static_cast<std::uint32_t>(sizeof(NAME_INDEX_ENTRY));
  cntl->dsu_index_len = cntl->num_trgs_allowed * 4;
  cntl->num_ltrg_allowed = configured_local_targets(task);
  return rc;
}

std::int16_t init_trg(void* task) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "init_trg", &rc);
  DBR_TCB* tcb = tcb_of(task);
  loading load{task, tcb, memory::trg_table_size(tcb), {}, false, {}};
  co_get_target(task, load.local_name, 0);
  load.local_name[name_len] = 0;
  auto* stored =
      static_cast<unsigned char*>(co_malloc(task, keyed::external_capacity, CO_MEM_PRIVATE, "INI_TRG"));
  if (!stored) {
    co_log2(task, 36355, 0, 0, 0, "%s", "temp ext buffer");
    return rc = DBE_IO_ERROR;
  }
  rc = load_table(load, stored);
  co_free_int(task, stored, "init_trg");
  return rc;
}

}  // namespace zvrdb::targets
