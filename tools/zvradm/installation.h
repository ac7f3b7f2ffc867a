// Making an installation, step by step, so that it can be repeated after a crash at
// any point.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "config_file.h"

namespace zvradm {

struct installation_values {
  std::string name, rgn, ren;
  std::optional<std::uint8_t> kind;
  std::optional<std::uint8_t> system;  // of the machine, as trg_os tells it
  std::optional<std::uint32_t> max_targets, max_local_targets, max_server_targets;
  bool force = false;
};

enum class making { made, changed, unchanged };

// Durable steps of the making, in their order; each has been done when it is told.
enum making_step : int {
  step_folders = 1,
  step_pending_written,
  step_interim_written,
  step_record_stored,
  step_state_dropped,
  step_published
};
inline constexpr int last_making_step = step_published;

// Called after each step; a test ends the process there.
extern void (*after_making_step)(int step);

// Throws refusal when the installation is there with other values (unless force) or
// cannot be made.
making make_installation(const std::string& base, const installation_values& values);

// trg_type of the local target of an installation of this kind.
std::uint8_t local_target_type(std::uint8_t kind);

}  // namespace zvradm
