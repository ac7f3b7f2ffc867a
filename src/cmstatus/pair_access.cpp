// One pair of a target and a change file, by name.
#include <algorithm>
#include <cstring>

#include "cmstatus/change_file_lookup.h"
#include "cmstatus/cm_status.h"
#include "cmstatus/sides.h"
#include "cmstatus/stored_records.h"
#include "memory/cf_name.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "recfile/recfile.h"

namespace zvrdb::cmstatus {
namespace {

// The caller's record.
constexpr std::uint32_t record_cf_name = 64;
constexpr std::uint32_t record_status = 140;
constexpr std::uint32_t record_details = 144;
constexpr std::uint32_t record_type = 152;  // in a default record
constexpr std::uint32_t handed_out = target_entry_len - entry_status;
static_assert(record_cf_name == memory::trg_name_len);
static_assert(record_cf_name + memory::cf_name_len == record_status);
static_assert(record_status + entry_details - entry_status == record_details);
static_assert(record_status + handed_out == 176);

// The two names in a form that can be copied out, for the keys may lie in the very
// buffer that is filled.
struct pair_names {
  char target[memory::trg_name_len + 1];  // as given, NULs behind
  unsigned char cf_name[memory::cf_name_len];
};
bool take_names(std::uint16_t num_keys, const void* const* keys, pair_names* names) {
  if (num_keys < 2 || !keys || !keys[0] || !keys[1]) return false;
  *names = {};
  const auto* target = static_cast<const char*>(keys[0]);
  std::memcpy(names->target, target, strnlen(target, memory::trg_name_len));
  std::memcpy(names->cf_name, keys[1], memory::cf_name_len);
  return true;
}

// 0, or any other code for a target that is unknown or whose number the record of a
// change file cannot hold.
std::int16_t find_target_number(void* task, const pair_names& names, std::uint32_t* number) {
  const std::int16_t rc = memory::get_trg_index(task, names.target, number);
  if (rc == DBE_OK && *number <= highest_target) return DBE_OK;
  ZVR_TRACE(task, 3, 2, "Bad Target or Target not local");
  return rc == DBE_OK ? static_cast<std::int16_t>(DBE_NO_TARGET) : rc;
}

// What is found on the way to a status, whether or not there is one.
struct pair_facts {
  bool local;
  std::uint8_t cf_flags;
};

// Copies what is handed out of the pair's entry.  0; 8194; 8224; 8455.
std::int16_t read_status(void* task, const pair_names& names, pair_facts* facts, unsigned char* out) {
  std::uint32_t trg_index = 0;
  if (find_target_number(task, names, &trg_index) != DBE_OK) return DBE_NOT_FOUND;
  DBR_TCB* tcb = memory::tcb_of(task);
  facts->local = is_local(memory::trg_slot(tcb, trg_index));
  std::uint16_t cf_number = 0;
  if (find_change_file(task, names.cf_name, &cf_number, &facts->cf_flags) != DBE_OK) return DBE_NOT_FOUND;
  if (locate(task, by_trg, trg_index) != DBE_OK) {
    ZVR_TRACE(task, 3, 2, "No CM status record found");
    return DBE_NOT_FOUND;
  }
  image_area image = target_area(task, "GET_CMS");
  const std::int16_t rc = read_image(task, &image);
  if (rc != DBE_OK) return rc;
  std::uint32_t offset = 0;
  // A free entry answers to the number 65535.
  if (find_cms(image.body, cf_number, &offset) != DBE_OK) {
    ZVR_TRACE(task, 3, 2, "No CM status record found for change file %hu", cf_number);
    return DBE_NOT_FOUND;
  }
  std::memcpy(out, image.body.bytes + offset + entry_status, handed_out);
  return DBE_OK;
}

// As far as the buffer goes, but never half a name.
void fill_record(void* task, const pair_names& names, const unsigned char* status, unsigned char* buffer,
                 std::uint32_t length) {
  if (length < record_cf_name) {
    ZVR_TRACE(task, 3, 2, "No room in buffer for targetname - returning");
    return;
  }
  std::memcpy(buffer, names.target, memory::trg_name_len);
  if (length < record_status) {
    ZVR_TRACE(task, 3, 2, "No room in buffer for change file - returning");
    return;
  }
  std::memcpy(buffer + record_cf_name, names.cf_name, memory::cf_name_len);
  std::memcpy(buffer + record_status, status, std::min(length - record_status, handed_out));
}

// The caller offers 153 bytes, whatever length was; the others stay as they are.
void fill_default_record(void* task, const pair_names& names, unsigned char* buffer) {
  ZVR_TRACE(task, 3, 2, "Build default record");
  std::memcpy(buffer, names.target, memory::trg_name_len);
  std::memcpy(buffer + record_cf_name, names.cf_name, memory::cf_name_len);
  buffer[record_status] = default_status;
  buffer[record_type] =
      static_cast<unsigned char>(memory::get_type(task, names.cf_name, co_find_subtree(task, names.cf_name)));
}

// Writes both sides; the transaction is under way.  0 or 8196.
std::int16_t store_pair(void* task, std::uint32_t trg_index, std::uint16_t cf_number, bool has_record,
                        const image_area& image, std::uint8_t status) {
  const std::int16_t rc =
      has_record ? update_image(task, by_trg, trg_index, image) : write_image(task, by_trg, trg_index, image);
  return rc == DBE_OK ? put_cm_by_cat(task, trg_index, cf_number, status) : rc;
}

std::int16_t put_pair(void* task, const pair_names& names, const unsigned char* record) {
  std::uint32_t trg_index = 0;
  std::uint16_t cf_number = 0;
  if (find_target_number(task, names, &trg_index) != DBE_OK) return DBE_BAD_CMS_KEY;
  if (memory::get_cat_num(task, &cf_number, names.cf_name) != DBE_OK) {
    ZVR_TRACE(task, 3, 2, "Bad CF");
    return DBE_BAD_CMS_KEY;
  }
  image_area image = target_area(task, "GET_CMS");
  if (!image.there()) return DBE_IO_ERROR;
  std::int16_t rc = locate(task, by_trg, trg_index);
  const bool has_record = rc == DBE_OK;
  if (has_record) rc = read_image(task, &image);
  if (rc != DBE_OK && (has_record || rc != DBE_NOT_FOUND)) return rc;
  if (!has_record) ZVR_TRACE(task, 3, 2, "No CM status record found new one must be inserted");
  std::uint32_t offset = 0;
  const bool existed = find_cms(image.body, cf_number, &offset) == DBE_OK;
  const std::uint8_t status = record[record_status];
  if (!store_entry(&image.body, offset, cf_number, status, record + record_details))
    return DBE_BUFFER_TOO_SMALL;
  rc = recfile::start_trans(task, DB_CMS);
  if (rc != DBE_OK) return rc;
  rc = store_pair(task, trg_index, cf_number, has_record, image, status);
  if (rc == DBE_OK || rc == DBE_RECORD_REPLACED) rc = existed ? DBE_RECORD_REPLACED : DBE_OK;
  return end_change(task, rc);
}

// Takes the pair out of both sides; the transaction is under way.
std::int16_t remove_pair(void* task, std::uint32_t trg_index, std::uint16_t cf_number,
                         const image_area& image) {
  std::uint32_t offset = 0;
  std::int16_t rc = find_cms(image.body, cf_number, &offset);
  if (rc != DBE_OK) return rc;
  image_area work = file_area(task, "DELBY_CAT");
  rc = del_cm_by_cat(task, trg_index, cf_number, &work);
  if (rc != DBE_OK) return rc;
  free_entry_at(image.body, offset);
  return update_image(task, by_trg, trg_index, image);
}

std::int16_t delete_pair(void* task, const pair_names& names) {
  std::uint32_t trg_index = 0;
  std::uint16_t cf_number = 0;
  if (find_target_number(task, names, &trg_index) != DBE_OK) return DBE_NOT_FOUND;
  if (memory::get_cat_num(task, &cf_number, names.cf_name) != DBE_OK) return DBE_NOT_FOUND;
  std::int16_t rc = locate(task, by_trg, trg_index);
  if (rc != DBE_OK) return rc;
  image_area image = target_area(task, "GET_CMS");
  rc = read_image(task, &image);
  if (rc == DBE_OK) rc = recfile::start_trans(task, DB_CMS);
  if (rc != DBE_OK) return rc;
  return end_change(task, remove_pair(task, trg_index, cf_number, image));
}

}  // namespace

std::int16_t init_cms(void* task) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc;
}

std::int16_t get_cms(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  pair_names names;
  if (!take_names(num_keys, keys, &names)) {
    bracket.quitting();
    return rc = DBE_NOT_FOUND;
  }
  auto* out = static_cast<unsigned char*>(buffer);
  pair_facts facts = {};
  unsigned char status[handed_out];
  rc = read_status(task, names, &facts, status);
  if (rc == DBE_OK) {
    fill_record(task, names, status, out, length);
  } else if (facts.local && ((facts.cf_flags & flag_default_status) || default_for_all(task))) {
    fill_default_record(task, names, out);
    rc = DBE_OK;
  } else {
    bracket.quitting();
  }
  return rc;
}

std::int16_t put_cms(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t) {
  std::int16_t rc = DBE_BAD_CMS_KEY;
  const trace_bracket bracket(task, __func__, &rc);
  pair_names names;
  if (take_names(num_keys, keys, &names))
    rc = put_pair(task, names, static_cast<const unsigned char*>(record));
  if (rc != DBE_OK && rc != DBE_RECORD_REPLACED) bracket.quitting();
  return rc;
}

std::int16_t del_cms(void* task, std::uint16_t num_keys, const void* const* keys) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  pair_names names;
  if (take_names(num_keys, keys, &names)) rc = delete_pair(task, names);
  if (rc != DBE_OK) bracket.quitting();
  return rc;
}

}  // namespace zvrdb::cmstatus
