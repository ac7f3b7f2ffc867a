// Lists in key order.
#include <algorithm>
#include <cstring>
#include <limits>

#include "keyed/keyed.h"
#include "keyed/list_state.h"
#include "memory/trace.h"
#include "recfile/recfile.h"

namespace zvrdb::keyed {
namespace {

// Room for the longest key of any file, and for what the callers give beside it.
struct local_key {
  unsigned char bytes[list_key_capacity];
};
static_assert(list_key_capacity >= recfile::max_key_len);

}  // namespace

void set_list_state(void* list_state, const void* start_key, std::uint32_t start_key_len,
                    const list_setup& setup) {
  auto* state = static_cast<unsigned char*>(list_state);
  std::memset(state, 0, list_state_len(setup.key_len));
  std::memcpy(state + list_start_key, start_key, std::min(start_key_len, list_key_capacity));
  set_list_number(state, list_index_no, setup.index_no);
  set_list_number(state, list_key_match, setup.key_match);
  set_list_number(state, list_first_time, 1);
  set_list_number(state, list_key_len, setup.key_len);
  set_list_number(state, list_init_ok, 1);
}

std::int16_t start_list_keyed(void* task, file_entry* handle, const void* key, std::uint16_t key_prefix_len,
                              std::uint16_t entry_len, void* list, std::uint32_t list_size,
                              std::uint16_t* count) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  local_key at = {};
  if (key_prefix_len > sizeof at.bytes || entry_len > sizeof at.bytes) {
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  std::memcpy(at.bytes, key, key_prefix_len);
  auto* entry = static_cast<unsigned char*>(list);
  std::int16_t option = recfile::KEY_GE;
  for (std::uint16_t n = 0;; ++n) {
    rc = recfile::db_locate(task, handle, at.bytes, option);
    const bool ended = rc == DBE_NOT_FOUND;
    if (rc != DBE_OK && !ended) {
      bracket.quitting();
      return rc;
    }
    if (ended || std::memcmp(at.bytes, key, key_prefix_len) != 0) {
      *count = n;
      return rc = DBE_OK;
    }
    const std::uint64_t size = (std::uint64_t{n} + 1) * entry_len;
    if (size > list_size || n == std::numeric_limits<std::uint16_t>::max()) {
      *count = n;
      return rc = DBE_LIST_TOO_SMALL;
    }
    std::memcpy(entry, at.bytes, entry_len);
    entry += entry_len;
    option = recfile::KEY_GT;
  }
}

std::int16_t get_more_keyed(void* task, std::uint32_t db_id, file_entry* handle, void* list_state,
                            void* buffer, std::uint32_t buffer_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (!list_usable(list_state, recfile::key_length(handle))) {
    bracket.quitting();
    return rc = DBE_END_OF_LIST;
  }
  auto* state = static_cast<unsigned char*>(list_state);
  const std::uint32_t key_len = list_number(state, list_key_len);
  const bool first = list_number(state, list_first_time) == 1;
  local_key at = {};
  std::memcpy(at.bytes, state + (first ? list_start_key : list_last_key), key_len);
  if (first) set_list_number(state, list_first_time, 0);
  rc = recfile::db_locate(task, handle, at.bytes, first ? recfile::KEY_GE : recfile::KEY_GT);
  if (rc != DBE_OK) {
    bracket.quitting();
    if (rc == DBE_NOT_FOUND) rc = DBE_END_OF_LIST;
    return rc;
  }
  if (std::memcmp(at.bytes, state + list_start_key, list_number(state, list_key_match)) != 0) {
    bracket.quitting();
    return rc = DBE_END_OF_LIST;
  }
  rc = get_keyed(task, db_id, handle, at.bytes, buffer, buffer_len);
  std::memcpy(state + list_last_key, at.bytes, key_len);
  return rc;
}

}  // namespace zvrdb::keyed
