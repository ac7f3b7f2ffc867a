// Records by a key other than the first: correlators by either of their keys, and
// requests by destination.
#include <algorithm>
#include <cstring>

#include "engine/engine.h"
#include "keyed/keyed.h"
#include "keyed/list_state.h"
#include "keyed/scratch.h"
#include "memory/trace.h"
#include "recfile/record_fields.h"
#include "recfile/storage_messages.h"

namespace zvrdb::keyed {
namespace {

using recfile::field_kind;

constexpr std::uint32_t both_keys_len = 124;  // of a correlator
constexpr std::uint32_t second_key_offset = 48;
constexpr std::uint32_t request_key_len = 76;
constexpr std::uint32_t destination_len = recfile::server_key_len;  // server and target number
constexpr std::uint16_t by_server = 2;                              // keys of "userreq"
constexpr std::uint16_t by_target = 3;
constexpr char key_type_of[] = {0, 2, 2, 5};  // by key number
static_assert(both_keys_len == recfile::max_key_len);
static_assert(recfile::target_key_offset == recfile::server_key_offset + 4);

std::int16_t storage_failure(void* task, const recfile::open_file& file, int code,
                             recfile::storage_function operation) {
  recfile::issue_err_msg(task, file.spec->name, static_cast<std::int16_t>(code), operation);
  return DBE_IO_ERROR;
}

// Value of a key field as the engine compares it.  0 or 8455.
std::int16_t key_value(void* task, const recfile::open_file& file, const recfile::field_list& list, int key,
                       unsigned char* value) {
  const int code = engine::dkeyval(file.entry->psp, key, list.fields.data(), -1, value);
  return code == engine::e_ok ? std::int16_t{DBE_OK} : storage_failure(task, file, code, recfile::at_keyval);
}

// Reads the record that the engine stands on; its data goes to `data`, which has room
// for the longest body.  0 or 8455.
std::int16_t read_data(void* task, const recfile::open_file& file, recfile::field_list* list,
                       unsigned char* data, std::uint32_t* data_len) {
  list->data->fdata = data;
  list->data->flen = 0;  // an empty data field is not stored and leaves the length as it was
  const int code = engine::dread(file.entry->psp, list->fields.data());
  if (code != engine::e_ok) return storage_failure(task, file, code, recfile::at_read);
  *data_len = static_cast<std::uint16_t>(list->data->flen);
  if (*data_len > recfile::record_buffer_len)
    return storage_failure(task, file, engine::e_record_length, recfile::at_read);
  return DBE_OK;
}

// Keys as a read returns them, with room for whatever length a damaged body claims.
struct read_keys {
  unsigned char* first;
  unsigned char* second;
  unsigned char third[4];
};

// Points all key fields at areas that no stored length can overrun.  The areas are the
// task's piece area, whose halves are as long as the engine's record buffer.
bool point_keys(void* task, const recfile::open_file& file, recfile::field_list* list, read_keys* keys) {
  unsigned char* area = recfile::piece_area(task, file.tcb);
  if (!area) return false;
  keys->first = area;
  keys->second = recfile::second_key_area(area);
  list->fields[0].fdata = keys->first;
  list->fields[1].fdata = keys->second;
  if (file.spec->kind == field_kind::three_keys) list->fields[2].fdata = keys->third;
  return true;
}

// 0 and the whole correlator in `external`, both keys in the file's order; 8194, 8455.
std::int16_t read_correlator(void* task, const recfile::open_file& file, std::uint32_t index,
                             const unsigned char* keys_sought, unsigned char* external,
                             std::uint32_t* external_len) {
  recfile::field_list list;
  recfile::build_fields(file, &list);
  unsigned char value[recfile::key_value_len];
  unsigned char sought[both_keys_len];
  std::memcpy(sought, keys_sought, sizeof sought);
  list.fields[index - 1].fdata = sought + (index == 2 ? second_key_offset : 0);
  list.data->fdata = external + both_keys_len;
  std::int16_t rc = key_value(task, file, list, static_cast<int>(index), value);
  if (rc != DBE_OK) return rc;
  const int code =
      engine::dfind(file.entry->psp, static_cast<int>(index), value, key_type_of[index], engine::find_equal);
  if (code != engine::e_ok) return DBE_NOT_FOUND;
  if (!external_len) return DBE_OK;
  read_keys keys;
  if (!point_keys(task, file, &list, &keys)) return DBE_IO_ERROR;
  std::uint32_t data_len = 0;
  rc = read_data(task, file, &list, external + both_keys_len, &data_len);
  if (rc != DBE_OK) return rc;
  std::memcpy(external, keys.first, second_key_offset);
  std::memcpy(external + second_key_offset, keys.second, both_keys_len - second_key_offset);
  *external_len = data_len + both_keys_len;
  return DBE_OK;
}

// Whether the entry that the engine stands on still belongs to the list.  `sought` is
// server and target number in network order.
bool belongs(void* task, const recfile::open_file& file, bool domains, const unsigned char* sought,
             const unsigned char* value) {
  const unsigned char* current = engine::current_key(file.entry->psp);
  if (!current) return false;
  constexpr std::uint32_t number_len = 4;
  if (!domains) {
    // The engine's own form of the value: the file may be of the other byte order.
    if (std::memcmp(current, value, number_len) == 0) return true;
    ZVR_TRACE(task, 2, 2, "%s", "target number changed");
    return false;
  }
  constexpr unsigned char no_target[number_len] = {};
  if (current[0] != destination_len || std::memcmp(current + 1, sought, number_len) != 0) {
    ZVR_TRACE(task, 2, 2, "%s", "server number changed");
    return false;
  }
  if (std::memcmp(current + 1 + number_len, no_target, number_len) == 0) return true;
  ZVR_TRACE(task, 2, 2, "%s", "target number not zero");
  return false;
}

// All entries of a list have one key value, so their records' numbers rise.  The position
// is the engine's own, which other calls of the task may move, or lose with its handle:
// one that does not lead on is the end of the list, or it could go round for ever.
// The last number stands in the list state.
bool leads_on(void* task, const recfile::open_file& file, unsigned char* state, bool first) {
  const std::int32_t record = engine::current_record(file.entry->psp);
  std::int32_t last = 0;
  std::memcpy(&last, state + list_last_key, sizeof last);
  if (!first && record <= last) {
    ZVR_TRACE(task, 2, 2, "%s", "position moved back");
    return false;
  }
  std::memcpy(state + list_last_key, &record, sizeof record);
  return true;
}

// Moves the engine to the next request of the list: 0, 8199 or 8455.
std::int16_t next_request(void* task, const recfile::open_file& file, std::uint32_t db_id,
                          unsigned char* state) {
  const bool domains = db_id == DB_RQD;
  const std::uint16_t index = list_number(state, list_index_no);
  alignas(std::uint32_t) unsigned char key[both_keys_len] = {};
  std::memcpy(key, state + list_start_key, request_key_len);
  recfile::convert_key_nbo(task, file.spec->list_id, key, recfile::to_network);
  unsigned char* const sought = key + recfile::server_key_offset;
  recfile::field_list list;
  recfile::build_fields(file, &list);
  list.fields[index - 1u].fdata = domains ? sought : key + recfile::target_key_offset;
  unsigned char value[recfile::key_value_len] = {};
  const std::int16_t rc = key_value(task, file, list, index, value);
  if (rc != DBE_OK) return rc;
  int code = 0;
  const bool first = list_number(state, list_first_time) != 0;
  if (first) {
    code = engine::dfind(file.entry->psp, index, value, key_type_of[index], engine::find_equal);
    set_list_number(state, list_first_time, 0);
  } else {
    code = engine::dseq(file.entry->psp, index, engine::seq_next);
  }
  if (code != engine::e_ok || !belongs(task, file, domains, sought, value)) return DBE_END_OF_LIST;
  return leads_on(task, file, state, first) ? DBE_OK : DBE_END_OF_LIST;
}

// 0 and the request in `external`, its key in host order; 8455.
std::int16_t read_request(void* task, const recfile::open_file& file, unsigned char* external,
                          std::uint32_t* external_len) {
  recfile::field_list list;
  recfile::build_fields(file, &list);
  read_keys keys;
  if (!point_keys(task, file, &list, &keys)) return DBE_IO_ERROR;
  std::uint32_t data_len = 0;
  const std::int16_t rc = read_data(task, file, &list, external + request_key_len, &data_len);
  if (rc != DBE_OK) return rc;
  std::memcpy(external, keys.first, request_key_len);
  recfile::convert_key_nbo(task, file.spec->list_id, external, recfile::from_network);
  *external_len = data_len + request_key_len;
  return DBE_OK;
}

// The next request of the list as its first piece has it.  Later pieces of a long record
// have the same destination in their keys and are passed over.  0, 8199 or 8455.
std::int16_t next_record(void* task, const recfile::open_file& file, std::uint32_t db_id,
                         unsigned char* state, unsigned char* external, std::uint32_t* external_len) {
  std::int16_t rc = DBE_OK;
  do {
    rc = next_request(task, file, db_id, state);
    if (rc == DBE_OK) rc = read_request(task, file, external, external_len);
  } while (rc == DBE_OK && recfile::recnum_of(file, external) != 0);
  return rc;
}

// Only these two types are listed by destination, each by its own key.
bool index_fits(std::uint32_t db_id, std::uint16_t index) {
  return (db_id == DB_RQD && index == by_server) || (db_id == DB_RQT && index == by_target);
}

}  // namespace

std::int16_t get_keyed_alt(void* task, std::uint32_t db_id, file_entry* handle, void* key,
                           std::uint32_t key_len, void* buffer, std::uint32_t buffer_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  recfile::open_file file;
  if (!recfile::find_open(task, handle, &file)) {
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  // The caller's key stays in network order on every way out but the last.
  unsigned char keys[both_keys_len] = {};
  const std::uint32_t given = std::min(key_len, both_keys_len);
  std::memcpy(keys, key, given);
  recfile::convert_key_nbo(task, file.spec->list_id, keys, recfile::to_network);
  std::memcpy(key, keys, given);
  unsigned char* external = scratch_area(task, "GET_K_ALT");
  if (!external) {
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  if ((db_id != DB_COI && db_id != DB_COO) || file.spec->kind != field_kind::two_keys) {
    bracket.quitting();
    return rc = DBE_BAD_DB_ID;
  }
  const bool reads = buffer_len >= int_key_len[db_id];
  std::uint32_t external_len = 0;
  rc = read_correlator(task, file, db_id == DB_COI ? 2 : 1, keys, external, reads ? &external_len : nullptr);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  if (!reads) {
    ZVR_TRACE(task, 2, 2, "length needed for key %lu, internal buffer one %lu",
              static_cast<unsigned long>(int_key_len[db_id]), static_cast<unsigned long>(buffer_len));
    return rc;
  }
  std::memset(buffer, 0, buffer_len);
  recfile::convert_key_nbo(task, file.spec->list_id, keys, recfile::from_network);
  std::memcpy(key, keys, given);
  recfile::convert_key_nbo(task, file.spec->list_id, external, recfile::from_network);
  return rc = parse_keyed(task, db_id, external, buffer, &external_len, &buffer_len);
}

std::int16_t get_more_alt(void* task, std::uint32_t db_id, file_entry* handle, void* list_state, void* buffer,
                          std::uint32_t buffer_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  recfile::open_file file;
  const bool usable = recfile::find_open(task, handle, &file) && file.spec->kind == field_kind::three_keys &&
                      list_usable(list_state, file.key_len) &&
                      index_fits(db_id, list_number(list_state, list_index_no));
  if (!usable) {
    bracket.quitting();
    return rc = DBE_END_OF_LIST;
  }
  unsigned char* external = scratch_area(task, "GET_MORE");
  std::uint32_t external_len = 0;
  rc = external ? next_record(task, file, db_id, static_cast<unsigned char*>(list_state), external,
                              &external_len)
                : std::int16_t{DBE_IO_ERROR};
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  if (buffer_len > 0) std::memset(buffer, 0, buffer_len);
  return rc = parse_keyed(task, db_id, external, buffer, &external_len, &buffer_len);
}

}  // namespace zvrdb::keyed
