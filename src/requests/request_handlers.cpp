// The handlers by name, one set a type, for the table of record types.
#include "requests/request_records.h"
#include "requests/requests.h"

namespace zvrdb::requests {

#define ZVR_REQUEST_TYPE(suffix, db_id)                                                                \
  std::int16_t get_##suffix(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer, \
                            std::uint16_t length) {                                                    \
    return get_record(task, __func__, db_id, num_keys, keys, buffer, length);                          \
  }                                                                                                    \
  std::int16_t put_##suffix(void* task, std::uint16_t num_keys, const void* const* keys, void* record, \
                            std::uint16_t length) {                                                    \
    return put_record(task, __func__, db_id, num_keys, keys, record, length);                          \
  }                                                                                                    \
  std::int16_t del_##suffix(void* task, std::uint16_t num_keys, const void* const* keys) {             \
    return del_record(task, __func__, db_id, num_keys, keys);                                          \
  }                                                                                                    \
  std::int16_t init_list_##suffix(void* task, void* filter, void* list_state, std::uint32_t size) {    \
    return begin_list(task, __func__, db_id, filter, list_state, size);                                \
  }                                                                                                    \
  std::int16_t get_more_##suffix(void* task, void* list_state, void* buffer, std::uint16_t length) {   \
    return next_of_list(task, __func__, db_id, list_state, buffer, length);                            \
  }

ZVR_REQUEST_TYPE(rqr, DB_RQR)
ZVR_REQUEST_TYPE(rqf, DB_RQF)
ZVR_REQUEST_TYPE(fan, DB_FAN)
ZVR_REQUEST_TYPE(rqd, DB_RQD)
ZVR_REQUEST_TYPE(rqt, DB_RQT)
ZVR_REQUEST_TYPE(rqv, DB_RQV)

#undef ZVR_REQUEST_TYPE

}  // namespace zvrdb::requests
