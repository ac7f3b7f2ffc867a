// Parameters, hardware and shadow record of a target: one pattern, three rows.
#include <cstring>

#include "keyed/keyed.h"
#include "memory/trace.h"
#include "targets/target_access.h"
#include "targets/targets.h"

namespace zvrdb::targets {
namespace {

struct attached_record {
  std::uint32_t db_id;
  std::uint32_t put_len;  // length read from the caller's record; 0: the length that the caller gives
  const char* del_name;
  const char* get_name;
  const char* put_name;
};
constexpr attached_record prm{DB_PRM, prm_record_len, "del_prm", "get_prm", "put_prm"};
constexpr attached_record thw{DB_THW, thw_record_len, "del_thw", "get_thw", "put_thw"};
constexpr attached_record sht{DB_SHT, 0, "del_sht", "get_sht", "put_sht"};

std::int16_t key_of(void* task, const attached_record& type, std::uint16_t num_keys, const void* const* keys,
                    target_key* key) {
  *key = {type.db_id, 0, 0};
  const char* name = name_key(num_keys, keys);
  const std::int16_t rc =
      name ? memory::get_trg_index(task, name, &key->number) : std::int16_t{DBE_NO_TARGET};
  if (rc != DBE_OK) ZVR_TRACE(task, 5, 2, "Error getting target number");
  return rc;
}

std::int16_t del_attached(void* task, const attached_record& type, std::uint16_t num_keys,
                          const void* const* keys) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, type.del_name, &rc);
  target_key key;
  rc = key_of(task, type, num_keys, keys, &key);
  if (rc == DBE_OK) rc = keyed::del_keyed(task, type.db_id, tcb_of(task)->trg_file, &key);
  return rc;
}

std::int16_t get_attached(void* task, const attached_record& type, std::uint16_t num_keys,
                          const void* const* keys, void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, type.get_name, &rc);
  target_key key;
  rc = key_of(task, type, num_keys, keys, &key);
  if (rc == DBE_OK) rc = keyed::get_keyed(task, type.db_id, tcb_of(task)->trg_file, &key, buffer, length);
  return rc;
}

std::int16_t put_attached(void* task, const attached_record& type, std::uint16_t num_keys,
                          const void* const* keys, const void* record, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, type.put_name, &rc);
  target_key key;
  rc = key_of(task, type, num_keys, keys, &key);
  if (rc != DBE_OK) return rc;
  rc = keyed::put_keyed(task, type.db_id, tcb_of(task)->trg_file, &key, record,
                        type.put_len ? type.put_len : length);
  return rc;
}

}  // namespace

std::int16_t del_prm(void* task, std::uint16_t n, const void* const* keys) {
  return del_attached(task, prm, n, keys);
}
std::int16_t del_thw(void* task, std::uint16_t n, const void* const* keys) {
  return del_attached(task, thw, n, keys);
}
std::int16_t del_sht(void* task, std::uint16_t n, const void* const* keys) {
  return del_attached(task, sht, n, keys);
}

std::int16_t get_prm(void* task, std::uint16_t n, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  return get_attached(task, prm, n, keys, buffer, length);
}
std::int16_t get_thw(void* task, std::uint16_t n, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  return get_attached(task, thw, n, keys, buffer, length);
}
std::int16_t get_sht(void* task, std::uint16_t n, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  return get_attached(task, sht, n, keys, buffer, length);
}

std::int16_t put_prm(void* task, std::uint16_t n, const void* const* keys, void* record,
                     std::uint16_t length) {
  return put_attached(task, prm, n, keys, record, length);
}
std::int16_t put_thw(void* task, std::uint16_t n, const void* const* keys, void* record,
                     std::uint16_t length) {
  return put_attached(task, thw, n, keys, record, length);
}
std::int16_t put_sht(void* task, std::uint16_t n, const void* const* keys, void* record,
                     std::uint16_t length) {
  return put_attached(task, sht, n, keys, record, length);
}

// The parameters of all targets; the filter has no meaning.
std::int16_t init_list_prm(void* task, [[maybe_unused]] void* filter, void* list_state, std::uint32_t size) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "init_list_prm", &rc);
  if (size < trg_list_len) {
    trace.quitting();
    return rc = DBE_LIST_TOO_SMALL;
  }
  std::memset(list_state, 0, trg_list_len);
  const target_key start{DB_PRM, 0, 0};
  keyed::set_list_state(list_state, &start, sizeof start, {1, 4, sizeof(target_key)});
  return rc;
}

std::int16_t get_more_prm(void* task, void* list_state, void* buffer, [[maybe_unused]] std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "get_more_prm", &rc);
  return rc = keyed::get_more_keyed(task, DB_PRM, tcb_of(task)->trg_file, list_state, buffer, prm_record_len);
}

}  // namespace zvrdb::targets
