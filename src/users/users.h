// Handlers of users (db_id 22), authorization profiles (23) and the two tables of access
// keys (24, 25).  They run inside the frame, with "DBR_MEM" held by the task.  keys[0] is
// a name, NUL-terminated or 16 bytes.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::users {

inline constexpr std::uint32_t usr_record_len = 1236;
inline constexpr std::uint32_t apr_record_len = 28;
inline constexpr std::uint32_t ak_record_len = 2432;
inline constexpr std::uint32_t user_list_len = 280;  // list state of users and profiles

// ---- Users (db_id 22).  A user is never removed: a deleted one keeps its record, and a
// new one of the same name goes on with its last_seqno.
// 0; 8194 unknown or deleted; or the code of get_keyed.
std::int16_t get_usr(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
// 0 new, or deleted before; 8196 replaced; or the code of get_keyed or put_keyed.  Changes
// the caller's record: deleted is cleared, last_seqno set where the rules say so.
std::int16_t put_usr(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
// 0, also when deleted already; 8194; 8200 a login target was deleted and the table of
// targets still gives its name.
std::int16_t del_usr(void* task, std::uint16_t num_keys, const void* const* keys);
// filter: a name (of which no more than 16 bytes are read), or a prefix before `*`; an empty
// one is the empty name.  0; 8211 less than user_list_len bytes; 8195 no filter.
std::int16_t init_list_usr(void* task, void* filter, void* list_state, std::uint32_t size);
// Passes over deleted users.  Fills no more than usr_record_len bytes, and no more than
// length.  0; 8199 at the end; or the code of get_keyed.
std::int16_t get_more_usr(void* task, void* list_state, void* buffer, std::uint16_t length);

// ---- Authorization profiles (23).  The codes of the keyed functions.
std::int16_t get_apr(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_apr(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_apr(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t init_list_apr(void* task, void* filter, void* list_state, std::uint32_t size);
std::int16_t get_more_apr(void* task, void* list_state, void* buffer, std::uint16_t length);

// ---- Access key tables (24 and 25), kept in common areas 13 and 14.  There are no keys.
// 0; the code of get_keyed when the table is not in memory and cannot be read.
std::int16_t get_tak(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
// 0; 8196; or the code of put_keyed, with the table in memory unchanged.
std::int16_t put_tak(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t get_dak(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_dak(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
// Building of the shared memory: from here on both tables are read anew, for what a task
// that died left in memory may never have come into the file.  Always 0.
std::int16_t init_access_keys(void* task);

}  // namespace zvrdb::users
