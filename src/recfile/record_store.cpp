// Storing, replacing and deleting of logical records, piece by piece inside one
// transaction.
#include <algorithm>
#include <cstring>

#include "memory/trace.h"
#include "recfile/record_fields.h"
#include "recfile/storage_messages.h"
#include "recfile/transaction_state.h"

namespace zvrdb::recfile {
namespace {

constexpr char binary_key = 2;

// The data part of a record, cut in pieces as it is consumed.
struct piece_cutter {
  const unsigned char* next;
  std::uint32_t left;
  std::uint32_t piece;   // longest piece
  std::uint32_t pieces;  // still to come
};

piece_cutter cut(const open_file& file, const void* record, std::uint32_t record_len) {
  const std::uint32_t piece = longest_piece - file.key_len;
  const std::uint32_t data_len = record_len - file.lead;
  const std::uint32_t pieces = data_len == 0 ? 1 : (data_len + piece - 1) / piece;
  return {static_cast<const unsigned char*>(record) + file.lead, data_len, piece, pieces};
}

void take_piece(piece_cutter* cutter, engine::field* data) {
  const std::uint32_t length = std::min(cutter->left, cutter->piece);
  // The engine reads through this pointer and never writes.
  data->fdata = const_cast<unsigned char*>(cutter->next);
  data->flen = static_cast<std::int16_t>(length);
  cutter->next += length;
  cutter->left -= length;
  --cutter->pieces;
}

std::int16_t failed(void* task, const open_file& file, int code, storage_function operation) {
  issue_err_msg(task, file.spec->name, static_cast<std::int16_t>(code), operation);
  return DBE_IO_ERROR;
}

std::int16_t insert_piece(void* task, const open_file& file, field_list* list) {
  const int code = engine::dinsert(file.entry->psp, list->fields.data());
  if (code != engine::e_ok) return failed(task, file, code, at_insert);
  return DBE_OK;
}

std::int16_t insert_pieces(void* task, const open_file& file, file_key* key, other_keys* others,
                           piece_cutter cutter) {
  field_list list;
  build_fields(file, &list);
  list.fields[0].fdata = key->bytes;
  derive_other_keys(file, *key, others);
  point_other_keys(file, &list, others);
  for (std::uint32_t recnum = 0; cutter.pieces > 0;) {
    take_piece(&cutter, list.data);
    const std::int16_t rc = insert_piece(task, file, &list);
    if (rc != DBE_OK) return rc;
    set_recnum(file, key->bytes, ++recnum);
  }
  return DBE_OK;
}

// Reads the old piece for the values of its other keys, which an update keeps.
std::int16_t read_other_keys(void* task, const open_file& file, field_list* list, other_keys* others) {
  list->fields[0].fdata = nullptr;
  list->data->fdata = nullptr;
  point_other_keys(file, list, others);
  const int code = engine::dread(file.entry->psp, list->fields.data());
  if (code != engine::e_ok) return failed(task, file, code, at_read);
  const bool fits =
      file.spec->kind == field_kind::one_key || list->fields[1].flen == field_rows(file.spec->kind)[1].length;
  if (!fits) return failed(task, file, engine::e_field_list, at_read);
  return DBE_OK;
}

std::int16_t replace_piece(void* task, const open_file& file, field_list* list) {
  int code = engine::dlock_for_call(file.entry->psp);
  if (code != engine::e_ok) return failed(task, file, code, at_lock);
  code = engine::dupdate(file.entry->psp, list->fields.data());
  std::int16_t rc = DBE_OK;
  if (code != engine::e_ok) rc = failed(task, file, code, at_update);
  code = engine::dunlock(file.entry->psp);
  if (code != engine::e_ok) ZVR_TRACE(task, 4, 2, "dunlock returned %d", code);
  return rc;
}

std::int16_t delete_current_piece(void* task, const open_file& file, field_list* list) {
  int code = engine::dlock_for_call(file.entry->psp);
  if (code != engine::e_ok) return failed(task, file, code, at_lock);
  code = engine::ddelete(file.entry->psp, list->fields.data());
  if (code != engine::e_ok) return failed(task, file, code, at_delete);
  return DBE_OK;
}

// 8455 when nobody can tell whether there is one.
std::int16_t find_next_piece(void* task, const open_file& file, field_list* list, file_key* key) {
  const std::int16_t rc = find_piece(task, file, list, key);
  if (rc != DBE_NOT_FOUND || !locate_failed(file.entry)) return rc;
  return failed(task, file, engine::last_status(file.entry->psp), at_read);
}

// The engine stands on piece 0 of the old record.
std::int16_t replace_pieces(void* task, const open_file& file, file_key* key, other_keys* others,
                            piece_cutter cutter) {
  field_list list;
  build_fields(file, &list);
  std::uint32_t recnum = 0;
  std::int16_t found = DBE_OK;
  while (cutter.pieces > 0) {
    std::int16_t rc = DBE_OK;
    if (found == DBE_OK) rc = read_other_keys(task, file, &list, others);
    if (rc != DBE_OK) return rc;
    list.fields[0].fdata = key->bytes;
    restore_key_lengths(file, &list);
    take_piece(&cutter, list.data);
    if (found == DBE_OK) {
      rc = replace_piece(task, file, &list);
    } else {
      ZVR_TRACE(task, 2, 2, "%s", "Record doesn't exist, inserting ...");
      rc = insert_piece(task, file, &list);
    }
    if (rc != DBE_OK) return rc;
    set_recnum(file, key->bytes, ++recnum);
    found = find_next_piece(task, file, &list, key);
    if (found == DBE_IO_ERROR) return found;
  }
  if (found == DBE_OK) ZVR_TRACE(task, 2, 2, "%s", "Old record was longer");
  while (found == DBE_OK) {
    const std::int16_t rc = delete_current_piece(task, file, &list);
    if (rc != DBE_OK) return rc;
    set_recnum(file, key->bytes, ++recnum);
    found = find_next_piece(task, file, &list, key);
    if (found == DBE_IO_ERROR) return found;
  }
  return DBE_OK;
}

// The engine stands on piece 0 of the record.
std::int16_t delete_pieces(void* task, const open_file& file, const file_key& key) {
  field_list list;
  build_fields(file, &list);
  file_key at = key;
  for (;;) {
    std::int16_t rc = delete_current_piece(task, file, &list);
    if (rc != DBE_OK) return rc;
    unsigned char value[key_value_len];
    rc = key_value(task, file, &list, &at, value);
    if (rc != DBE_OK) return rc;
    const int code = engine::dfind(file.entry->psp, 1, value, binary_key, engine::find_greater);
    if (search_failed(code)) return failed(task, file, code, at_read);
    if (code != engine::e_ok) {
      ZVR_TRACE(task, 2, 2, "%s", "EOF: no more records to delete");
      return DBE_OK;
    }
    const unsigned char* current = current_key(file);
    if (!current || !same_record(file, current, key.bytes)) {
      ZVR_TRACE(task, 2, 2, "%s", "No more records to delete");
      return DBE_OK;
    }
    set_recnum(file, at.bytes, recnum_of(file, current));
  }
}

}  // namespace

std::int16_t db_write(void* task, file_entry* handle, void* key, const void* record,
                      std::uint32_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  open_file file;
  if (!find_open(task, handle, &file) || !key || !record || record_len < file.lead) {
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  file_key in_file;
  load_key(task, file, key, &in_file);
  set_recnum(file, in_file.bytes, 0);
  unsigned char second[sna_key_len];
  other_keys others = {second, {}};
  implicit_transaction transaction;
  rc = begin_implicit(task, file, &transaction);
  if (rc == DBE_OK) {
    rc = insert_pieces(task, file, &in_file, &others, cut(file, record, record_len));
    rc = end_implicit(task, file, transaction, rc);
  }
  return_key(task, file, in_file, key);
  return rc;
}

std::int16_t db_update(void* task, file_entry* handle, void* key, const void* record,
                       std::uint32_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  open_file file;
  if (!find_open(task, handle, &file) || !key || !record || record_len < file.lead) {
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  unsigned char* area = piece_area(task, file.tcb);
  if (!area) {
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  file_key in_file;
  load_key(task, file, key, &in_file);
  set_recnum(file, in_file.bytes, 0);
  field_list list;
  build_fields(file, &list);
  rc = find_piece(task, file, &list, &in_file);
  implicit_transaction transaction;
  if (rc == DBE_OK) rc = begin_implicit(task, file, &transaction);
  if (rc == DBE_OK) {
    other_keys others = {second_key_area(area), {}};
    if (transaction.reopened) rc = find_piece(task, file, &list, &in_file);
    if (rc == DBE_OK) rc = replace_pieces(task, file, &in_file, &others, cut(file, record, record_len));
    rc = end_implicit(task, file, transaction, rc);
  }
  return_key(task, file, in_file, key);
  return rc;
}

std::int16_t db_delete(void* task, void* key, file_entry* handle) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  open_file file;
  if (!find_open(task, handle, &file) || !key) {
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  file_key in_file;
  load_key(task, file, key, &in_file);
  set_recnum(file, in_file.bytes, 0);
  field_list list;
  build_fields(file, &list);
  rc = find_piece(task, file, &list, &in_file);
  implicit_transaction transaction;
  if (rc == DBE_OK) rc = begin_implicit(task, file, &transaction);
  if (rc == DBE_OK) {
    if (transaction.reopened) rc = find_piece(task, file, &list, &in_file);
    if (rc == DBE_OK) rc = delete_pieces(task, file, in_file);
    rc = end_implicit(task, file, transaction, rc);
  }
  return_key(task, file, in_file, key);
  return rc;
}

}  // namespace zvrdb::recfile
