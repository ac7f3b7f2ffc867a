// Correlators whose function is gone.  They do no harm: a task that was killed at the end
// of a deletion leaves them, and so does whoever names a function it never stored.
#pragma once

#include <string>
#include <vector>

namespace zvradm {

// What to tell of a file of correlators, a line each; nothing for a file of another name
// or without the file of requests beside it.
std::vector<std::string> lone_correlators(const std::string& file);

}  // namespace zvradm
