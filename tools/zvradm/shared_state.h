// The shared state of an installation as a whole.
#pragma once

#include <string>

namespace zvradm {

// Drops it.  Throws refusal, naming the tasks, when some are alive.
void drop_shared_state(const std::string& base);

}  // namespace zvradm
