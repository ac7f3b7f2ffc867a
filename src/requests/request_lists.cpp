// Lists by filter.  The exact parts of a filter, from the begin of the key on, become a
// start key; its length is what records must share with it to belong to the list.
#include <algorithm>
#include <cstring>

#include "keyed/keyed.h"
#include "keyed/list_state.h"
#include "memory/shared_tables.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "requests/request_parts.h"
#include "requests/request_records.h"
#include "requests/requests.h"

namespace zvrdb::requests {
namespace {

using memory::tcb_of;

constexpr std::uint16_t by_record_key = 1;
static_assert(request_list_len == keyed::list_state_len(request_key_len));

struct list_start {
  unsigned char key[request_key_len];
  std::uint16_t match;  // bytes of it
};

bool is_text(const request_part& part) {
  return part.kind == part_kind::text || part.kind == part_kind::fanout_text;
}

bool is_lone_star(const request_part& part, const void* filter) {
  const std::span<const unsigned char> text = part_text(part, filter);
  return text.size() == 1 && text[0] == '*';
}

// Only the first wild part can have a prefix before its "*": behind it nothing else could
// be looked up by key.
bool only_first_wild_has_prefix(const request_type& type, const void* filter, std::uint16_t mask) {
  bool wild = false;
  for (const request_part& part : type.parts) {
    if ((mask & part.wild) == 0) continue;
    if (wild && is_text(part) && !is_lone_star(part, filter)) return false;
    wild = true;
  }
  return true;
}

// Number of the target that the part names.  An unknown one makes the list empty.
std::int16_t put_number(void* task, const request_part& part, const void* filter, list_start* start) {
  const std::span<const unsigned char> text = part_text(part, filter);
  char name[sizeof(db_trg::trg_name) + 1] = {};
  std::memcpy(name, text.data(), std::min(text.size(), sizeof name - 1));
  std::uint32_t number = 0;
  if (memory::get_trg_index(task, name, &number) != DBE_OK) {
    ZVR_TRACE(task, 5, 2, "Unknown %s %s, returning an empty list", part.what, name);
    return DBE_EMPTY_LIST;
  }
  std::memcpy(start->key + part.key_offset, &number, sizeof number);
  return DBE_OK;
}

std::int16_t put_exact(void* task, const request_part& part, const void* filter, list_start* start) {
  const auto* from = static_cast<const unsigned char*>(filter) + part.id_offset;
  unsigned char* to = start->key + part.key_offset;
  start->match = static_cast<std::uint16_t>(start->match + part.key_width);
  switch (part.kind) {
    case part_kind::name:
      return put_number(task, part, filter, start);
    case part_kind::text: {
      const std::span<const unsigned char> text = part_text(part, filter);
      std::copy(text.begin(), text.end(), to);
      return DBE_OK;
    }
    case part_kind::fanout_text:
    case part_kind::sequence:
      std::memcpy(to, from, part.id_width);
      return DBE_OK;
    case part_kind::recursion: {
      std::uint16_t narrow = 0;
      std::memcpy(&narrow, from, sizeof narrow);
      const std::uint32_t wide = narrow;
      std::memcpy(to, &wide, sizeof wide);
      return DBE_OK;
    }
  }
  return DBE_EMPTY_LIST;
}

// The bytes of a wild text before its "*".
void put_prefix(const request_part& part, const void* filter, list_start* start) {
  if (!is_text(part)) return;
  const auto* from = static_cast<const unsigned char*>(filter) + part.id_offset;
  const auto* star = std::find(from, from + part.id_width, '*');
  std::copy(from, star, start->key + part.key_offset);
  start->match = static_cast<std::uint16_t>(start->match + (star - from));
}

std::int16_t start_by_prefix(void* task, const request_type& type, const void* filter, std::uint16_t mask,
                             list_start* start) {
  std::memcpy(start->key, &type.db_id, sizeof type.db_id);
  start->match = sizeof type.db_id;
  for (const request_part& part : type.parts) {
    if ((mask & part.wild) != 0) {
      put_prefix(part, filter, start);
      return DBE_OK;
    }
    const std::int16_t rc = put_exact(task, part, filter, start);
    if (rc != DBE_OK) return rc;
  }
  return DBE_OK;
}

std::int16_t set_up(void* task, const request_type& type, const void* filter, void* list_state) {
  const std::uint16_t mask = chk_filter_req(task, filter, type.db_id);
  if (mask == invalid_filter) return DBE_EMPTY_LIST;
  const bool by_destination = type.by_destination(mask);
  if (!by_destination && !type.by_prefix(mask)) return DBE_EMPTY_LIST;
  if (!only_first_wild_has_prefix(type, filter, mask)) return DBE_EMPTY_LIST;
  list_start start = {};
  const std::int16_t rc = by_destination ? put_number(task, type.destination(), filter, &start)
                                         : start_by_prefix(task, type, filter, mask, &start);
  if (rc != DBE_OK) return rc;
  const std::uint16_t index = by_destination ? type.destination_index : by_record_key;
  keyed::set_list_state(list_state, start.key, sizeof start.key, {index, start.match, request_key_len});
  return DBE_OK;
}

}  // namespace

std::int16_t begin_list(void* task, const char* function, std::uint32_t db_id, const void* filter,
                        void* list_state, std::uint32_t size) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  if (size < request_list_len) {
    bracket.quitting();
    return rc = DBE_LIST_TOO_SMALL;
  }
  // A cleared state is one without entries, and stays so unless all goes well.
  std::memset(list_state, 0, request_list_len);
  const request_type* type = request_type_of(db_id);
  if (!filter || !type)
    rc = filter ? DBE_BAD_DB_ID : DBE_BAD_RECORD;
  else
    rc = set_up(task, *type, filter, list_state);
  if (rc != DBE_OK) bracket.quitting();
  return rc;
}

std::int16_t next_of_list(void* task, const char* function, std::uint32_t db_id, void* list_state,
                          void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  const request_type* type = request_type_of(db_id);
  const bool by_destination = type && type->destination_index != 0 &&
                              keyed::list_number(list_state, keyed::list_index_no) != by_record_key;
  const auto next = by_destination ? keyed::get_more_alt : keyed::get_more_keyed;
  return rc = next(task, db_id, tcb_of(task)->req_file, list_state, buffer, length);
}

}  // namespace zvrdb::requests
