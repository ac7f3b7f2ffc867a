// How many groups there are, and may be.
#include <zvrdb/records.h>

#include <algorithm>
#include <cstring>

#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "recfile/recfile.h"
#include "users/group_kinds.h"
#include "users/groups.h"
#include "users/name_key.h"

namespace zvrdb::users {
namespace {

using memory::tcb_of;

constexpr std::uint32_t most_of_both = 65535;  // targets and groups

void log_ignored(void* task, const group_key& key, std::uint32_t limit) {
  char name[sizeof key.name + 1] = {};
  std::memcpy(name, key.name, sizeof key.name);
  ZVR_TRACE(task, 5, 2, "Too many groups configured - group %s ignored", name);
  co_log2(task, 36418, 0, 0, 0, "%s|%ld", name, static_cast<long>(limit));
}

std::int16_t count_in_file(void* task, const char* function, const group_kind& kind) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  DBR_TCB* tcb = tcb_of(task);
  const std::uint32_t limit = group_limit(task);
  std::uint32_t counted = 0;
  group_key key = {};
  for (std::int16_t option = recfile::KEY_FIRST;; option = recfile::KEY_GT) {
    rc = recfile::db_locate_surely(task, tcb->*kind.file, &key, option);
    if (rc == DBE_NOT_FOUND) break;
    if (rc != DBE_OK) {
      bracket.quitting();
      return rc;
    }
    if (key.db_id != kind.db_id) {
      ZVR_TRACE(task, 5, 2, "Das id changed, %lu, quitting !", static_cast<unsigned long>(key.db_id));
      bracket.quitting();
      return rc;
    }
    if (counted < limit)
      ++counted;
    else
      log_ignored(task, key, limit);
  }
  tcb->cntl->*kind.count = counted;
  return rc = DBE_OK;
}

bool counts_stand(void* task) {
  const DBR_CNTL* cntl = tcb_of(task)->cntl;
  return cntl->alloc_generation == cntl->shm_generation && cntl->finitialized != 0;
}

}  // namespace

std::uint32_t group_limit(void* task) {
  std::uint32_t targets = 0;
  if (const auto* area = static_cast<const unsigned char*>(co_croca(task, CO_AREA_CONFIG)))
    std::memcpy(&targets, area + offsetof(db_cfg, max_targets), sizeof targets);
  return targets < most_of_both ? std::min(targets, most_of_both - targets) : 0;
}

std::int16_t count_tg(void* task) {
  return counts_stand(task) ? std::int16_t{DBE_OK} : count_in_file(task, __func__, static_groups);
}
std::int16_t count_dtg(void* task) {
  return counts_stand(task) ? std::int16_t{DBE_OK} : count_in_file(task, __func__, dynamic_groups);
}
std::int16_t recount_groups(void* task, std::uint32_t db_id) {
  return count_in_file(task, __func__, db_id == DB_TG ? static_groups : dynamic_groups);
}

}  // namespace zvrdb::users
