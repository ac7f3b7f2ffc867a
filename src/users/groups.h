// Handlers of target groups (db_id 6) and dynamic target groups (31).  They run inside the
// frame, with "DBR_MEM" held by the task.  keys[0] is the group's name, NUL-terminated or
// 64 bytes.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::users {

inline constexpr std::uint32_t group_list_len = 328;  // list state of both kinds
inline constexpr std::uint32_t group_entry_len = 68;  // of start_list: db_id, then the name in 64 bytes

// The smaller of MAX TARGETS and 65535 - MAX TARGETS: most groups of both kinds together.
std::uint32_t group_limit(void* task);

// ---- Building of the shared memory: count the groups in the files, unless the counts of
// the current generation stand.  0, or the code of the walk.
std::int16_t count_tg(void* task);
std::int16_t count_dtg(void* task);

// Counts the groups of one kind (DB_TG or DB_DTG) whatever generation stands: a roll-back
// has undone what calls had counted.  As the above.
std::int16_t recount_groups(void* task, std::uint32_t db_id);

// ---- Target groups (db_id 6)
// The code of get_keyed.
std::int16_t get_tg(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                    std::uint16_t length);
// 8196 stored, also for a new group; 8213 the limit is reached (36383 logged); 8200 an
// unknown member; or the code of get_keyed or put_keyed.
std::int16_t put_tg(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                    std::uint16_t length);
// 0; 8194.
std::int16_t del_tg(void* task, std::uint16_t num_keys, const void* const* keys);
// filter: null or empty for all, a name, or a prefix before `*`.  *count is set, to at most
// group_limit.  0, also when an area that holds group_limit entries ended before the list;
// 8211; or the code of db_locate.
std::int16_t start_list_tg(void* task, const void* filter, void* list, std::uint32_t size,
                           std::uint16_t* count);
// As get_tg for the entry at *index.
std::int16_t get_next_tg(void* task, const void* list, const std::uint16_t* index, void* buffer,
                         std::uint16_t length);
// 0; 8211 less than group_list_len bytes; 8195 no filter.
std::int16_t init_list_tg(void* task, void* filter, void* list_state, std::uint32_t size);
// 0; 8199 at the end.
std::int16_t get_more_tg(void* task, void* list_state, void* buffer, std::uint16_t length);

// ---- Dynamic target groups (31), as the above
std::int16_t get_dtg(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_dtg(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_dtg(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t start_list_dtg(void* task, const void* filter, void* list, std::uint32_t size,
                            std::uint16_t* count);
std::int16_t get_next_dtg(void* task, const void* list, const std::uint16_t* index, void* buffer,
                          std::uint16_t length);
std::int16_t init_list_dtg(void* task, void* filter, void* list_state, std::uint32_t size);
std::int16_t get_more_dtg(void* task, void* list_state, void* buffer, std::uint16_t length);

}  // namespace zvrdb::users
