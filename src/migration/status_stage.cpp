// The stage of CM status.
#include <cstring>
#include <initializer_list>

#include "memory/shared_tables.h"
#include "memory/trace.h"
#include "migration/conversion.h"
#include "migration/field_copy.h"
#include "migration/new_files.h"
#include "migration/older_files.h"
#include "migration/private_table.h"
#include "migration/status_files.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t key_len = sizeof(target_key);
constexpr std::uint32_t by_trg = 1;

// Bits of what is there.
constexpr std::uint32_t older_there = 1;  // "cm_status", or under its working name "cm_status.old"
constexpr std::uint32_t new_there = 2;    // "cm_status.new" or "cmstatus"

struct status_state {
  older_entry current;   // "cm_status"
  older_entry working;   // "cm_status.old"
  older_entry half_new;  // "cm_status.new"
  older_entry new_file;  // "cmstatus"
  std::uint32_t bits = 0;
};

// check_stat_cms: 0 or 8455.
std::int16_t check_stat_cms(const conversion& run, status_state* state) {
  std::int16_t rc = find_entry(run.task, "cm_status", &state->current);
  if (rc == DBE_OK) rc = find_entry(run.task, "cm_status.old", &state->working);
  if (rc == DBE_OK) rc = find_entry(run.task, "cm_status.new", &state->half_new);
  if (rc == DBE_OK) rc = find_entry(run.task, new_file_name(DB_CMS), &state->new_file);
  state->bits = (state->current.exists || state->working.exists ? older_there : 0) |
                (state->half_new.exists || state->new_file.exists ? new_there : 0);
  return rc;
}

std::int16_t remove_new(const conversion& run, const status_state& state) {
  ZVR_TRACE(run.task, 3, 2, "%s", "Found both - deleting new one ...");
  std::int16_t rc = DBE_OK;
  for (const older_entry* entry : {&state.half_new, &state.new_file})
    if (entry->exists && remove_new_file(run, DB_CMS, entry->path) != DBE_OK) rc = DBE_IO_ERROR;
  return rc;
}

std::int16_t count_pair(void* context, std::uint16_t cat_index, std::uint8_t) {
  ++static_cast<std::uint32_t*>(context)[cat_index];
  return DBE_OK;
}

// The record of each target: what its file ends with. On the way the pairs of each change
// file are counted.
std::int16_t put_target_sides(const conversion& run, const status_files& files, new_file* file,
                              std::uint32_t* pairs_of) {
  const std::uint32_t count = memory::trg_count(run.tcb);
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t number = run.tcb->name_index[i].trg_index;
    char name[memory::trg_name_len + 1] = {};
    std::memcpy(name, run.tcb->trg_cntl[number - 1].trg_name, memory::trg_name_len);
    std::uint32_t last = 0;
    std::int16_t rc = read_status(run, files, name, count_pair, pairs_of, &last);
    if (rc != DBE_OK) return rc;
    target_key key = {by_trg, number, 0};
    if (file->write(&key, files.image, key_len + last) != DBE_OK) return DBE_IO_ERROR;
    tell_progress(run, i + 1, count);
  }
  tell_count(run, "targets", count);
  return DBE_OK;
}

// In a dry run there is no table: every file of the directory is looked at.
std::int16_t look_at_all(const conversion& run, const status_files& files, std::uint32_t* pairs_of) {
  for (std::uint32_t i = 0; i < files.names->count(); ++i) {
    std::uint32_t last = 0;
    const std::int16_t rc = read_status(run, files, files.names->at(i), count_pair, pairs_of, &last);
    if (rc != DBE_OK) return rc;
    tell_progress(run, i + 1, files.names->count());
  }
  tell_count(run, "targets", files.names->count());
  return DBE_OK;
}

void tell_files_of_nobody(const conversion& run, const status_files& files) {
  for (std::uint32_t i = 0; i < files.names->count(); ++i) {
    const char* name = files.names->at(i);
    bool known = memory::find_name(run.task, name) >= 0;
    for (std::uint32_t t = 0; !known && t < memory::trg_count(run.tcb); ++t)
      known = same_name(run.tcb->trg_cntl[run.tcb->name_index[t].trg_index - 1].trg_name, name);
    if (!known) tell_note(run, 0, "%s/%s is of no target and is passed over", files.directory, name);
  }
}

void tell_pairs(const conversion& run, const std::uint32_t* pairs_of, std::uint32_t numbers) {
  std::uint32_t pairs = 0;
  std::uint32_t change_files = 0;
  for (std::uint32_t i = 0; i < numbers; ++i) {
    pairs += pairs_of[i];
    if (pairs_of[i] > 0) ++change_files;
  }
  tell_count(run, "change files", change_files);
  tell_count(run, "pairs", pairs);
}

std::int16_t convert_files(const conversion& run, const status_files& files, std::uint32_t* pairs_of,
                           std::uint32_t numbers) {
  std::int16_t rc = DBE_OK;
  if (run.dry_run) {
    rc = look_at_all(run, files, pairs_of);
    if (rc == DBE_OK) tell_pairs(run, pairs_of, numbers);
    return rc;
  }
  tell_files_of_nobody(run, files);
  new_file file(run);
  rc = file.open(DB_CMS, building::anew);
  if (rc == DBE_OK) rc = put_target_sides(run, files, &file, pairs_of);
  if (rc == DBE_OK) rc = put_change_file_sides(run, files, &file, pairs_of, numbers);
  if (rc == DBE_OK) rc = file.commit();
  if (rc != DBE_OK) return rc;
  tell_pairs(run, pairs_of, numbers);
  return file.close();
}

std::int16_t convert_directory(const conversion& run, const char* directory) {
  directory_names names(run.task);
  if (names.load(directory) != DBE_OK) return DBE_IO_ERROR;
  // The number behind the last one is let pass.
  const std::uint32_t numbers = run.catalog_numbers + 1;
  const std::uint32_t size = numbers * static_cast<std::uint32_t>(sizeof(std::uint32_t)) + key_len + status_chunk;
  auto* area = static_cast<std::uint32_t*>(co_malloc(run.task, size, CO_MEM_PRIVATE, "MIG_CMS"));
  if (!area) {
    co_log2(run.task, 36355, 0, 0, 0, "%s", "MIG_CMS");
    return DBE_IO_ERROR;
  }
  const status_files files = {directory, &names, reinterpret_cast<unsigned char*>(area + numbers)};
  const std::int16_t rc = convert_files(run, files, area, numbers);
  co_free_int(run.task, area, "db_mig_cms");
  return rc;
}

std::int16_t convert(conversion& run, const status_state& state) {
  if (run.dry_run)
    return convert_directory(run, state.working.exists ? state.working.name : state.current.name);
  older_entry working = state.working;
  if (!working.exists) {
    file_path path;
    if (!database_path(run.task, "cm_status.old", path) || rename_path(run, state.current.path, path) != DBE_OK)
      return DBE_IO_ERROR;
    const std::int16_t rc = find_entry(run.task, "cm_status.old", &working);
    if (rc != DBE_OK) return rc;
  }
  std::int16_t rc = need_names(run);
  if (rc == DBE_OK) rc = convert_directory(run, working.name);
  if (rc != DBE_OK) return rc;
  file_path done;
  if (!database_path(run.task, "cm_status.old.done", done)) return DBE_IO_ERROR;
  rm_dir_if_there(run, "cm_status.old.done");  // of an earlier one: it would stand in the way
  rc = rename_path(run, working.path, done);
  return rc == DBE_OK ? rm_dir_if_there(run, "cm_status.old.done") : rc;
}

}  // namespace

std::int16_t db_mig_cms(conversion& run) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  status_state state;
  rc = check_stat_cms(run, &state);
  if (rc == DBE_OK && state.bits == 0) rc = DBE_IO_ERROR;
  if (rc != DBE_OK) {
    bracket.quitting();
    tell_begin(run, "neither an older directory nor a record file", true);
    return rc;
  }
  if (state.bits == new_there) {
    tell_begin(run, "converted", false);
    return rc = run.dry_run ? rc : rm_dir_if_there(run, "cm_status.old.done");
  }
  tell_begin(run, state.working.exists ? "conversion was cut short, begins anew" : "older layout", true);
  if (state.bits == (older_there | new_there) && !run.dry_run) rc = remove_new(run, state);
  if (rc == DBE_OK) rc = convert(run, state);
  return rc;
}

}  // namespace zvrdb::migration
