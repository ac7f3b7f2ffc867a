#include "recfile/record_fields.h"

#include <cstring>

#include "memory/trace.h"
#include "recfile/storage_messages.h"

namespace zvrdb::recfile {

void load_key(void* task, const open_file& file, const void* caller_key, file_key* key) {
  std::memset(key->bytes, 0, sizeof key->bytes);
  std::memcpy(key->bytes, caller_key, file.lead);
  convert_key_nbo(task, file.spec->list_id, key->bytes, to_network);
  trace_key(task, file.spec->list_id, caller_key);
}

void return_key(void* task, const open_file& file, const file_key& key, void* caller_key) {
  file_key host = key;
  convert_key_nbo(task, file.spec->list_id, host.bytes, from_network);
  std::memcpy(caller_key, host.bytes, file.lead);
}

std::uint32_t recnum_of(const open_file& file, const unsigned char* key) {
  std::uint32_t recnum = 0;
  std::memcpy(&recnum, key + file.key_len - recnum_len, recnum_len);
  return recnum;
}

void set_recnum(const open_file& file, unsigned char* key, std::uint32_t recnum) {
  std::memcpy(key + file.key_len - recnum_len, &recnum, recnum_len);
}

bool same_record(const open_file& file, const unsigned char* a, const unsigned char* b) {
  return std::memcmp(a, b, file.key_len - recnum_len) == 0;
}

const unsigned char* current_key(const open_file& file) {
  const unsigned char* value = engine::current_key(file.entry->psp);
  return value && value[0] == file.key_len ? value + 1 : nullptr;
}

void build_fields(const open_file& file, field_list* list) {
  unsigned number = 0;
  for (const field_row& row : field_rows(file.spec->kind)) {
    const std::int16_t length = row.key == 1 ? static_cast<std::int16_t>(file.key_len) : row.length;
    list->fields[number++] = {row.type, row.key_type, row.duplicates, 0, length, row.key, 0, nullptr};
  }
  list->data = &list->fields[data_field(file.spec->kind)];
}

void restore_key_lengths(const open_file& file, field_list* list) {
  unsigned number = 0;
  for (const field_row& row : field_rows(file.spec->kind)) {
    if (row.key != 0)
      list->fields[number].flen = row.key == 1 ? static_cast<std::int16_t>(file.key_len) : row.length;
    ++number;
  }
}

void point_other_keys(const open_file& file, field_list* list, other_keys* keys) {
  if (file.spec->kind == field_kind::one_key) return;
  list->fields[1].fdata = keys->second;
  if (file.spec->kind == field_kind::three_keys) list->fields[2].fdata = keys->target;
}

void derive_other_keys(const open_file& file, const file_key& key, other_keys* keys) {
  if (file.spec->kind == field_kind::two_keys) {
    std::memcpy(keys->second, key.bytes + file.key_len, sna_key_len);
  } else if (file.spec->kind == field_kind::three_keys) {
    std::memcpy(keys->second, key.bytes + server_key_offset, server_key_len);
    std::memcpy(keys->target, key.bytes + target_key_offset, sizeof keys->target);
  }
}

std::int16_t key_value(void* task, const open_file& file, field_list* list, file_key* key,
                       unsigned char* value) {
  list->fields[0].fdata = key->bytes;
  restore_key_lengths(file, list);
  const int code = engine::dkeyval(file.entry->psp, 1, list->fields.data(), -1, value);
  if (code == engine::e_ok) return DBE_OK;
  issue_err_msg(task, file.spec->name, static_cast<std::int16_t>(code), at_keyval);
  return DBE_IO_ERROR;
}

bool search_failed(int code) {
  return code < engine::e_ok && code != engine::e_not_found;
}

std::int16_t find_piece(void* task, const open_file& file, field_list* list, file_key* key) {
  unsigned char value[key_value_len];
  const std::int16_t rc = key_value(task, file, list, key, value);
  if (rc != DBE_OK) return rc;
  constexpr char binary_key = 2;
  const int code = engine::dfind(file.entry->psp, 1, value, binary_key, engine::find_equal);
  return code == engine::e_ok ? DBE_OK : DBE_NOT_FOUND;
}

unsigned char* piece_area(void* task, DBR_TCB* tcb) {
  constexpr const char* tag = "DB_READ";
  if (!tcb->piece_area)
    tcb->piece_area =
        static_cast<unsigned char*>(co_malloc(task, 2 * record_buffer_len, CO_MEM_PRIVATE, tag));
  if (!tcb->piece_area) co_log2(task, 36355, 0, 0, 0, "%s", tag);
  return tcb->piece_area;
}

}  // namespace zvrdb::recfile
