// Records of correlators, by either of their keys.
#include <zvrdb/records.h>

#include "keyed/converters.h"
#include "keyed/keyed.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "recfile/recfile.h"
#include "requests/correlators.h"
#include "requests/keyed_put.h"
#include "requests/request_records.h"

namespace zvrdb::requests {
namespace {

using memory::tcb_of;

// Key 1, by request identifier, and behind it key 2, by SNA correlator.
struct both_keys {
  unsigned char bytes[recfile::max_key_len] = {};
};

std::int16_t add_first_key(void* task, const void* identifier, both_keys* keys) {
  keyed::external_sink to = {keys->bytes, keys->bytes + sizeof keys->bytes};
  return keyed::unprs_coo_key(task, DB_COO, nullptr, &to,
                              {static_cast<const unsigned char*>(identifier), sizeof(db_rqf_id)});
}

std::int16_t add_second_key(void* task, const void* correlator, both_keys* keys) {
  keyed::external_sink to = {keys->bytes, keys->bytes + sizeof keys->bytes};
  return keyed::unprs_coi_key(task, DB_COI, nullptr, &to,
                              {static_cast<const unsigned char*>(correlator), sizeof(db_coo)});
}

}  // namespace

std::int16_t get_coo(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  both_keys key;
  if (const void* identifier = first_key(num_keys, keys)) rc = add_first_key(task, identifier, &key);
  if (rc == DBE_OK)
    rc = keyed::get_keyed_alt(task, DB_COO, tcb_of(task)->corr_file, key.bytes, sizeof key.bytes, buffer,
                              length);
  return rc;
}

std::int16_t get_coi(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  both_keys key;
  if (const void* correlator = first_key(num_keys, keys)) rc = add_second_key(task, correlator, &key);
  if (rc == DBE_OK)
    rc = keyed::get_keyed_alt(task, DB_COI, tcb_of(task)->corr_file, key.bytes, sizeof key.bytes, buffer,
                              length);
  return rc;
}

std::int16_t put_coo(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  both_keys key;
  const void* correlator = first_key(num_keys, keys);
  if (correlator) rc = add_first_key(task, correlator, &key);
  if (rc == DBE_OK) rc = add_second_key(task, correlator, &key);
  if (rc == DBE_OK)
    rc = put_under_identity(task, DB_COO, tcb_of(task)->corr_file, key.bytes,
                            {correlator, offsetof(db_coo, num_mangled)}, record, length);
  return rc;
}

std::int16_t del_coo(void* task, std::uint16_t num_keys, const void* const* keys) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  both_keys key;
  if (const void* identifier = first_key(num_keys, keys)) rc = add_first_key(task, identifier, &key);
  if (rc == DBE_OK) rc = keyed::del_keyed(task, DB_COO, tcb_of(task)->corr_file, key.bytes);
  return rc;
}

}  // namespace zvrdb::requests
