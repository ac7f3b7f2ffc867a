// The stages of authorization: tables of access keys, the three profiles, the remote user.
#include <cstdio>
#include <cstring>

#include "memory/trace.h"
#include "migration/conversion.h"
#include "migration/field_copy.h"
#include "migration/new_files.h"
#include "migration/older_files.h"
#include "migration/text_faults.h"
#include "migration/user_records.h"
#include "textrec/keyword_tables.h"
#include "textrec/parsed_files.h"
#include "textrec/text_records.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t key_count = 32;
constexpr std::uint32_t key_row_len = 76;
constexpr std::uint32_t key_mask_at = 12;
constexpr std::uint32_t key_description_at = 16;
constexpr std::uint32_t key_table_len = key_count * key_row_len;

constexpr std::uint32_t profile_len = 28;
constexpr std::uint32_t rights_at = 16;
constexpr std::uint32_t rights_len = 7;
constexpr std::uint32_t rights_row = 8;  // of a class in "user_config"

std::int16_t put_key_table(const conversion& run, new_file* file, std::uint32_t db_id, const char* stem,
                           std::uint32_t cache_area) {
  unsigned char record[key_table_len] = {};
  for (std::uint32_t i = 0; i < key_count; ++i) {
    unsigned char* row = record + i * key_row_len;
    const int number = static_cast<int>(i) + 1;
    std::snprintf(reinterpret_cast<char*>(row), key_mask_at, "%s%d", stem, number);
    std::snprintf(reinterpret_cast<char*>(row) + key_description_at, key_row_len - key_description_at,
                  "This is %s%d", stem, number);
    store_u32(row + key_mask_at, 1u << i);
  }
  name_key key = {db_id, {}, 0};
  const std::int16_t rc = file->put(db_id, &key, record, sizeof record);
  // What programs read of it is read from the file anew.
  auto* cache = static_cast<unsigned char*>(co_croca(run.task, cache_area));
  if (cache) store_u32(cache, 0);
  return rc;
}

std::int16_t put_profile(new_file* file, const char* name, const unsigned char* rights, unsigned char builds) {
  unsigned char record[profile_len] = {};
  std::memcpy(record, name, std::strlen(name));
  std::memcpy(record + rights_at, rights, rights_len);
  record[rights_at + rights_len] = builds;
  record[rights_at + rights_len + 1] = builds;
  name_key key = {DB_APR, {}, 0};
  std::memcpy(key.name, record, sizeof key.name);
  return file->put(DB_APR, &key, record, sizeof record);
}

// The rights of the three classes, a row each.
std::int16_t read_user_config(const conversion& run, unsigned char (&config)[textrec::ucf_record_len]) {
  older_entry entry;
  std::int16_t rc = find_entry(run.task, "user_config", &entry);
  if (rc == DBE_OK && !entry.exists) {
    tell_note(run, 0, "there is no user_config");
    return DBE_IO_ERROR;
  }
  if (rc != DBE_OK) return rc;
  const textrec::parsed_source source = {DB_UCF, entry.name, 0, textrec::ucf_keywords};
  rc = textrec::get_parsed(run.task, source, 0, nullptr, config, sizeof config);
  if (rc == DBE_OK) return rc;
  ZVR_TRACE(run.task, 5, 2, "reading user_config returned %hx", static_cast<unsigned short>(rc));
  tell_unreadable(run, source, nullptr, sizeof config, rc);
  return ok_or(false, rc == DBE_BAD_RECORD ? DBE_MIGRATION : DBE_IO_ERROR);
}

std::int16_t put_profiles(new_file* file, const unsigned char* config) {
  constexpr const char* names[] = {"ZVRUSER", "ZVRBLD", "ZVRADMN"};
  for (std::uint32_t i = 0; i < 3; ++i) {
    const std::int16_t rc = put_profile(file, names[i], config + i * rights_row, i == 0 ? 0 : 1);
    if (!stored(rc)) return rc;
  }
  return DBE_OK;
}

}  // namespace

std::int16_t db_mig_apr(conversion& run) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  tell_begin(run, "access keys and profiles", true);
  unsigned char config[textrec::ucf_record_len] = {};
  if (run.dry_run) return rc = read_user_config(run, config);
  new_file file(run);
  rc = file.open(DB_APR);
  if (rc == DBE_OK) rc = put_key_table(run, &file, DB_TAK, "TAK", CO_AREA_TARGET_KEYS);
  if (stored(rc)) rc = put_key_table(run, &file, DB_DAK, "DAK", CO_AREA_DEFAULT_KEYS);
  if (stored(rc)) rc = read_user_config(run, config);
  if (rc == DBE_OK) rc = put_profiles(&file, config);
  if (rc == DBE_OK) rc = file.commit();
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  tell_count(run, "tables of access keys", 2);
  tell_count(run, "profiles", 3);
  return rc = file.close();
}

std::int16_t add_remote(conversion& run) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  tell_begin(run, "the user \"remuser\"", true);
  if (run.dry_run) return rc;
  unsigned char record[user_len] = "remuser";
  name_key key = {DB_USR, {}, 0};
  std::memcpy(key.name, record, sizeof key.name);
  new_file file(run);
  rc = file.open(DB_USR);
  if (rc == DBE_OK && stored(file.put(DB_USR, &key, record, sizeof record)))
    rc = file.commit();
  else
    rc = DBE_IO_ERROR;
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  tell_count(run, "users", 1);
  return rc = file.close();
}

}  // namespace zvrdb::migration
