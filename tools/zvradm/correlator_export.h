// All correlators of an installation.
#pragma once

#include <zvrdb/records.h>

#include <string>
#include <vector>

namespace zvradm {

// In the order of their requests, without the one that the generator remembers itself by.
// The library lists no correlators, so their keys are read from the file.  Throws refusal.
std::vector<db_coo> read_correlators(void* task, const std::string& base);

}  // namespace zvradm
