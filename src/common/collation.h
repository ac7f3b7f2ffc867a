// The one order of names of an installation.
#pragma once

#include <cstddef>

namespace zvrdb::common {

// Name of the collation by this process's environment; "C" when that is unset or
// not available here.
void choose_collation(char* name, size_t size);
// Opens the collation of the installation for this process; false with a reason
// when the system does not have it.
bool open_collation(const char* name);
void close_collation();

}  // namespace zvrdb::common
