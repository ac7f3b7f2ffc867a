#include "requests/request_records.h"

#include "keyed/keyed.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "requests/correlators.h"
#include "requests/keyed_put.h"
#include "requests/request_parts.h"

namespace zvrdb::requests {
namespace {

using memory::tcb_of;

// A record under the key that keys[0] makes.
struct keyed_request {
  const void* identifier;
  std::uint32_t id_len;
  unsigned char key[request_key_len];
};

std::int16_t find_request(void* task, std::uint32_t db_id, std::uint16_t num_keys, const void* const* keys,
                          keyed_request* request) {
  const request_type* type = request_type_of(db_id);
  if (!type) return DBE_BAD_DB_ID;
  request->identifier = first_key(num_keys, keys);
  request->id_len = type->id_len;
  if (!request->identifier) return DBE_NOT_FOUND;
  return build_request_key(task, db_id, request->identifier, request->id_len, request->key);
}

// A function may travel without a correlator, or not have travelled yet.
std::int16_t delete_correlators(void* task, std::uint16_t num_keys, const void* const* keys) {
  const std::int16_t rc = del_coo(task, num_keys, keys);
  if (rc != DBE_NOT_FOUND) return rc;
  ZVR_TRACE(task, 2, 2, "%s", "correlator record not found, setting rc to OK");
  return DBE_OK;
}

}  // namespace

std::int16_t get_record(void* task, const char* function, std::uint32_t db_id, std::uint16_t num_keys,
                        const void* const* keys, void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  keyed_request request;
  rc = find_request(task, db_id, num_keys, keys, &request);
  if (rc == DBE_OK) rc = keyed::get_keyed(task, db_id, tcb_of(task)->req_file, request.key, buffer, length);
  return rc;
}

std::int16_t put_record(void* task, const char* function, std::uint32_t db_id, std::uint16_t num_keys,
                        const void* const* keys, const void* record, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  keyed_request request;
  rc = find_request(task, db_id, num_keys, keys, &request);
  if (rc == DBE_OK)
    rc = put_under_identity(task, db_id, tcb_of(task)->req_file, request.key,
                            {request.identifier, request.id_len}, record, length);
  return rc;
}

std::int16_t del_record(void* task, const char* function, std::uint32_t db_id, std::uint16_t num_keys,
                        const void* const* keys) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  keyed_request request;
  rc = find_request(task, db_id, num_keys, keys, &request);
  if (rc == DBE_OK) rc = keyed::del_keyed(task, db_id, tcb_of(task)->req_file, request.key);
  if (rc == DBE_OK && db_id == DB_RQF) rc = delete_correlators(task, num_keys, keys);
  return rc;
}

}  // namespace zvrdb::requests
