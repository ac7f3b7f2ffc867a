// Common areas: numbered shared memory of fixed capacities.
#pragma once

namespace zvrdb::common {

struct Installation;

// Fills areas 1 and 2 from the configuration file when the shared state is made.
// A missing file leaves them zero; a faulty one is a reason not to start.
bool fill_configuration_areas(const Installation& installation, int folder_fd);

void release_areas();  // under process().mutex

}  // namespace zvrdb::common
