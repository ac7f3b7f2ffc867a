// The nine record files as a table: names, keys, record types, and where a task keeps
// the handle of each.  The row number is the index of the file's control block in
// DBR_CNTL and of its entry in DBR_TCB.
#pragma once

#include <cstdint>
#include <span>

#include "engine/engine.h"
#include "recfile/recfile.h"

namespace zvrdb::recfile {

inline constexpr std::uint16_t longest_piece = 16000;  // one engine record, key included
inline constexpr std::uint32_t record_buffer_len = 16384;
inline constexpr std::uint32_t recnum_len = 4;          // number of the piece, last field of every key
inline constexpr std::uint32_t sna_key_len = 76;        // key 2 of "snacorr", behind key 1
inline constexpr std::uint32_t server_key_offset = 64;  // key 2 of "userreq": server and target number
inline constexpr std::uint32_t server_key_len = 8;
inline constexpr std::uint32_t target_key_offset = 68;  // key 3 of "userreq": target number
inline constexpr unsigned most_fields = 5;

// What kind of field list a file has.
enum class field_kind : std::uint8_t { one_key, two_keys, three_keys };

struct file_spec {
  const char* name;
  std::uint16_t key_len;
  field_kind kind;
  std::uint32_t list_id;                  // db_id given to set_datalist and kept in the control block
  std::span<const std::uint32_t> db_ids;  // record types that get_file_ptr knows for the file
  file_entry* DBR_TCB::*handle;
};

const file_spec& file_at(unsigned index);
// Row of the file that a record type lies in, or -1 when get_file_ptr does not know it.
int file_index(std::uint32_t db_id);
std::span<const field_row> field_rows(field_kind kind);
const engine::key_entry* engine_keys(field_kind kind);
// Index of the data field in the field list.
unsigned data_field(field_kind kind);

// The task's open entry behind a handle, with what the record operations need of it.
struct open_file {
  DBR_TCB* tcb;
  file_entry* entry;
  unsigned index;  // row of the file table
  const file_spec* spec;
  std::uint32_t key_len;
  std::uint32_t lead;  // bytes of a record before its data: key 1 and, in "snacorr", key 2
};
// False when the handle is no entry of this task or not open.
bool find_open(void* task, file_entry* handle, open_file* out);

}  // namespace zvrdb::recfile
