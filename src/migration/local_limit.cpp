// The limit of local targets, which older releases did not have.
#include <algorithm>
#include <cstring>

#include "memory/trace.h"
#include "migration/field_copy.h"
#include "migration/target_conversion.h"
#include "textrec/text_records.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t limit_at = 4284;  // of the base configuration
constexpr std::uint32_t default_limit = 512;
constexpr std::uint32_t room_beyond = 10;
constexpr std::uint32_t highest_limit = 2000;

}  // namespace

void raise_local_limit(const conversion& run, std::uint32_t local_targets) {
  const trace_bracket bracket(run.task, __func__);
  const auto* area = static_cast<const unsigned char*>(co_croca(run.task, CO_AREA_CONFIG));
  if (!area) return;
  unsigned char record[CO_CONFIG_LENGTH];
  std::memcpy(record, area, sizeof record);
  const std::uint32_t limit = load_u32(record + limit_at);
  if (limit == default_limit && local_targets < default_limit) {
    ZVR_TRACE(run.task, 2, 2, "Leave max_local_targets to default for SERVER %lu", static_cast<unsigned long>(limit));
  } else if (local_targets > limit) {
    const std::uint32_t raised = std::min(local_targets + room_beyond, highest_limit);
    store_u32(record + limit_at, raised);
    ZVR_TRACE(run.task, 2, 2, "max_local_targets changed to %lu", static_cast<unsigned long>(raised));
    tell_count(run, "MAX LOCAL TARGETS", raised);
  }
  step(run);
  textrec::put_new_cfg(run.task, 0, nullptr, record, sizeof record);
  step(run);
}

}  // namespace zvrdb::migration
