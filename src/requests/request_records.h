// What the handlers of all six types do, by type; `function` is the handler's name.
#pragma once

#include <cstdint>

#include "memory/codes.h"

namespace zvrdb::requests {

std::int16_t get_record(void* task, const char* function, std::uint32_t db_id, std::uint16_t num_keys,
                        const void* const* keys, void* buffer, std::uint16_t length);
std::int16_t put_record(void* task, const char* function, std::uint32_t db_id, std::uint16_t num_keys,
                        const void* const* keys, const void* record, std::uint16_t length);
std::int16_t del_record(void* task, const char* function, std::uint32_t db_id, std::uint16_t num_keys,
                        const void* const* keys);
std::int16_t begin_list(void* task, const char* function, std::uint32_t db_id, const void* filter,
                        void* list_state, std::uint32_t size);
std::int16_t next_of_list(void* task, const char* function, std::uint32_t db_id, void* list_state,
                          void* buffer, std::uint16_t length);

// What keys[0] points at, or null.
inline const void* first_key(std::uint16_t num_keys, const void* const* keys) {
  return num_keys > 0 && keys ? keys[0] : nullptr;
}

}  // namespace zvrdb::requests
