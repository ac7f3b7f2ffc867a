#include "targets/target_limits.h"

#include <zvrdb/records.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "memory/codes.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "targets/target_access.h"

namespace zvrdb::targets {
namespace {

constexpr std::size_t config_kind = offsetof(db_cfg, configuration);
constexpr std::size_t config_max_targets = offsetof(db_cfg, max_targets);
constexpr std::size_t config_max_local = offsetof(db_cfg, max_local_targets);
constexpr std::size_t config_max_servers = offsetof(db_cfg, max_server_targets);

std::uint32_t configured(void* task, std::size_t offset) {
  std::uint32_t value = 0;
  if (const auto* area = static_cast<const unsigned char*>(co_croca(task, CO_AREA_CONFIG)))
    std::memcpy(&value, area + offset, sizeof value);
  return value;
}

std::int16_t log_maximum(void* task, std::uint32_t message, std::int64_t maximum) {
  co_log2(task, message, 0, 0, 0, "%ld", static_cast<long>(maximum));
  return DBE_LIMIT_EXCEEDED;
}

}  // namespace

bool is_configured(void* task) {
  return co_croca(task, CO_AREA_CONFIG) != nullptr;
}
std::uint32_t configured_targets(void* task) {
  return configured(task, config_max_targets);
}
std::uint32_t configured_local_targets(void* task) {
  return configured(task, config_max_local);
}

std::uint8_t configured_kind(void* task) {
  const auto* area = static_cast<const unsigned char*>(co_croca(task, CO_AREA_CONFIG));
  return area ? area[config_kind] : std::uint8_t{0};
}

target_limits limits_now(void* task) {
  return {std::min(configured_targets(task), memory::trg_table_size(tcb_of(task))),
          configured_local_targets(task), configured(task, config_max_servers)};
}

std::int16_t check_trg_limits(void* task, const TRG_CNTL_ENTRY& record, const target_counts& so_far,
                              std::uint16_t reserve) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "check_trg_limits", &rc);
  const target_limits limits = limits_now(task);
  if (limits.targets - reserve <= so_far.targets) {
    co_log2(task, 36417, 0, 0, 0, "%s|%ld", name_from(record.trg_name, name_len).text,
            static_cast<long>(limits.targets));
    return rc = DBE_LIMIT_EXCEEDED;
  }
  if ((record.trg_type & type_local) && limits.local - reserve <= so_far.local)
    return rc = log_maximum(task, 36459, limits.local);
  // No reserve here, and a base system is not taken for a server.
  if ((record.trg_type & type_server) && limits.servers <= so_far.servers)
    return rc = log_maximum(task, 36460, limits.servers);
  return rc;
}

std::int16_t check_room(void* task, const TRG_CNTL_ENTRY& record) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "check_room", &rc);
  const target_limits limits = limits_now(task);
  const DBR_CNTL* cntl = tcb_of(task)->cntl;
  if (cntl->num_trgs_actual >= limits.targets) {
    co_log2(task, 36383, 0, 0, 0, "%s|%hd", "Target Configuration", static_cast<short>(limits.targets));
    return rc = DBE_LIMIT_EXCEEDED;
  }
  if ((record.trg_type & type_local) && cntl->num_ltrg_actual >= limits.local)
    return rc = log_maximum(task, 36459, limits.local);
  if ((record.trg_type & (type_server | type_base)) && cntl->num_srv_actual >= limits.servers)
    return rc = log_maximum(task, 36460, limits.servers);
  return rc;
}

}  // namespace zvrdb::targets
