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

#define ZVR_REQUEST_TYPE(suffix)                                                                       \
  std::int16_t get_##suffix(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer, \
                            std::uint16_t length);                                                     \
  std::int16_t put_##suffix(void* task, std::uint16_t num_keys, const void* const* keys, void* record, \
                            std::uint16_t length);                                                     \
  std::int16_t del_##suffix(void* task, std::uint16_t num_keys, const void* const* keys);              \
  std::int16_t init_list_##suffix(void* task, void* filter, void* list_state, std::uint32_t size);     \
  std::int16_t get_more_##suffix(void* task, void* list_state, void* buffer, std::uint16_t length)

ZVR_REQUEST_TYPE(rqr);
// Deletion of a function deletes its correlator too; there may be none.
ZVR_REQUEST_TYPE(rqf);
ZVR_REQUEST_TYPE(fan);
ZVR_REQUEST_TYPE(rqd);
ZVR_REQUEST_TYPE(rqt);
ZVR_REQUEST_TYPE(rqv);

#undef ZVR_REQUEST_TYPE

// ---- Work of the exported calls, without their frame
// Root record of the highest recursion at or below the identifier, whoever's it is.
// 0; 8194; or the code of get_keyed.
std::int16_t get_lst_rec(void* task, const void* identifier, void* record, std::uint16_t length);
// Deletes the whole request in one transaction.  0; 8194 no root record; or the code of
// the step that failed, with all records as they were.  identifier_text: set to the
// request's name for messages.
std::int16_t del_rq_tree(void* task, const void* identifier, char (&identifier_text)[CO_REQUEST_TEXT]);

}  // namespace zvrdb::requests
