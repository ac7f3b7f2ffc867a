// Names of record types for messages.
#pragma once

#include <cstdint>

namespace zvrdb::memory {

// Writes the name of a record type to dst (128 bytes); "" for a type without one.
void type_str(void* task, std::uint32_t db_id, char* dst);
// Logs a message with the record type's name as its insert.
void log_db_msg(void* task, std::uint32_t message_number, std::uint32_t db_id);

}  // namespace zvrdb::memory
