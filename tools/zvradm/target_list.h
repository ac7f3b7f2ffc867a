// All targets of an installation by name and number.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zvradm {

struct numbered_target {
  std::string name;  // as bytes
  std::uint32_t number;
};

// In the order of their names.  Throws refusal; what tells the work in messages.
std::vector<numbered_target> list_numbered_targets(void* task, const std::string& what);

}  // namespace zvradm
