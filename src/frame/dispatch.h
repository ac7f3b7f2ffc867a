// The table of record types: for each db_id its handlers, the class of its records and
// the shape of its keys.
#pragma once

#include <cstdint>

#include "memory/codes.h"

namespace zvrdb::frame {

// Semaphores by class.
enum record_class : std::uint16_t {
  file_class = 0,   // "DBRFILE": text records in directories, not held in memory
  memory_class = 1  // "DBR_MEM": all others
};

using keys_arg = const void* const*;
using del_handler = std::int16_t (*)(void* task, std::uint16_t num_keys, keys_arg keys);
using get_handler = std::int16_t (*)(void* task, std::uint16_t num_keys, keys_arg keys, void* buffer,
                                     std::uint16_t buffer_len);
using get_next_handler = std::int16_t (*)(void* task, const void* list, const std::uint16_t* index,
                                          void* buffer, std::uint16_t buffer_len);
using get_more_handler = std::int16_t (*)(void* task, void* list_state, void* buffer,
                                          std::uint16_t buffer_len);
using put_handler = std::int16_t (*)(void* task, std::uint16_t num_keys, keys_arg keys, void* record,
                                     std::uint16_t record_len);
using start_list_handler = std::int16_t (*)(void* task, const void* filter, void* list,
                                            std::uint32_t list_size, std::uint16_t* count);
using init_list_handler = std::int16_t (*)(void* task, void* filter, void* list_state,
                                           std::uint32_t list_state_size);

struct record_type {
  del_handler del_fn;
  get_handler get_fn;
  get_next_handler get_next_fn;
  get_more_handler get_more_fn;
  put_handler put_fn;
  start_list_handler start_list_fn;
  init_list_handler init_list_fn;
  std::int16_t sem_index;
  std::uint16_t num_keys;    // elements of the key array that callers pass
  std::uint16_t key_len[3];  // fixed length of each element, 0 where it has none of its own
  std::uint16_t spare;
};

// db_id must be below DB_TYPE_COUNT.
const record_type& type_row(std::uint32_t db_id);

}  // namespace zvrdb::frame
