// The file of the base configuration, "orvo.cfg".
#pragma once

namespace zvrdb::common {

// Reads it from the base directory into a zero record of CO_CONFIG_LENGTH bytes.
// A missing file leaves the record zero.  False with a reason for a faulty one.
bool read_config_file(const char* base, unsigned char* record);

}  // namespace zvrdb::common
