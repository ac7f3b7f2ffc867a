// Handlers of the records of requests (db_id 17 to 21 and 30) in "userreq".  They run
// inside the frame, with "DBR_MEM" held by the task.  keys[0] is the request identifier of
// the type (db_rqr_id and its kin); it alone makes the key.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::requests {

inline constexpr std::uint32_t request_list_len = 332;
inline constexpr std::uint16_t invalid_filter = 65535;

// Which parts of the filter are wild, a bit a part; invalid_filter when one is not allowed.
std::uint16_t chk_filter_req(void* task, const void* filter, std::uint32_t db_id);

// The six types answer alike.  get, put, del: the code of the name lookup when the key
// cannot be built, else that of the keyed function.  init_list: 0; 8211 less than
// request_list_len bytes; 8217 the filter can match nothing.  get_more: 0; 8199 at the end.

std::int16_t get_rqr(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_rqr(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_rqr(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t init_list_rqr(void* task, void* filter, void* list_state, std::uint32_t size);
std::int16_t get_more_rqr(void* task, void* list_state, void* buffer, std::uint16_t length);

std::int16_t get_rqf(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_rqf(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
// Deletes the correlators of the function too; there may be none.
std::int16_t del_rqf(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t init_list_rqf(void* task, void* filter, void* list_state, std::uint32_t size);
std::int16_t get_more_rqf(void* task, void* list_state, void* buffer, std::uint16_t length);

std::int16_t get_fan(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_fan(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_fan(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t init_list_fan(void* task, void* filter, void* list_state, std::uint32_t size);
std::int16_t get_more_fan(void* task, void* list_state, void* buffer, std::uint16_t length);

std::int16_t get_rqd(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_rqd(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_rqd(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t init_list_rqd(void* task, void* filter, void* list_state, std::uint32_t size);
std::int16_t get_more_rqd(void* task, void* list_state, void* buffer, std::uint16_t length);

std::int16_t get_rqt(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_rqt(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_rqt(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t init_list_rqt(void* task, void* filter, void* list_state, std::uint32_t size);
std::int16_t get_more_rqt(void* task, void* list_state, void* buffer, std::uint16_t length);

std::int16_t get_rqv(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_rqv(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_rqv(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t init_list_rqv(void* task, void* filter, void* list_state, std::uint32_t size);
std::int16_t get_more_rqv(void* task, void* list_state, void* buffer, std::uint16_t length);

// ---- Work of the exported calls, without their frame
// Root record of the highest recursion at or below the identifier, whoever's it is.
// 0; 8194; or the code of get_keyed.
std::int16_t get_lst_rec(void* task, const void* identifier, void* record, std::uint16_t length);
// Deletes the whole request in one transaction.  0; 8194 no root record; or the code of
// the step that failed, with all records as they were.
std::int16_t del_rq_tree(void* task, const void* identifier);

}  // namespace zvrdb::requests
