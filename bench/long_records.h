// CM status records as long as they get, written as they stand: one pair after the other
// they would take hours.
#pragma once

#include <cstdint>

namespace bench {

// The record of the target with this number: status of the change files 0 to files - 1.
void write_record_of_target(void* task, std::uint32_t target, std::uint32_t files);
// The record of the change file with this number: status on the targets 1 to targets.
void write_record_of_change_file(void* task, std::uint32_t file, std::uint32_t targets);

}  // namespace bench
