// The local target's name.
#pragma once

#include <string>

namespace zvradm {

std::string local_target_name(void* task);

}  // namespace zvradm
