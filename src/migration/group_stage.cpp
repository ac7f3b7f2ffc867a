// The stage of the target groups.
#include <cstring>
#include <initializer_list>

#include "memory/shared_tables.h"
#include "memory/trace.h"
#include "migration/conversion.h"
#include "migration/group_record.h"
#include "migration/new_files.h"
#include "migration/older_files.h"
#include "migration/private_table.h"
#include "migration/text_faults.h"
#include "textrec/older_tables.h"
#include "textrec/parsed_files.h"

namespace zvrdb::migration {
namespace {

// Bits of what is there.
constexpr std::uint32_t working_there = 1;  // "target_group.old"
constexpr std::uint32_t new_there = 2;      // "trggrp"; asked for when "target_group" is not there
constexpr std::uint32_t older_there = 4;    // "target_group"

constexpr std::uint32_t name_len = memory::trg_name_len;

struct group_state {
  older_entry current;   // "target_group"
  older_entry working;   // "target_group.old"
  older_entry new_file;  // "trggrp"
  std::uint32_t bits;
};

// check_stat_tg: 0 or 8455.
std::int16_t check_stat_tg(const conversion& run, group_state* state) {
  std::int16_t rc = find_entry(run.task, "target_group", &state->current);
  if (rc == DBE_OK) rc = find_entry(run.task, "target_group.old", &state->working);
  if (rc == DBE_OK) rc = find_entry(run.task, new_file_name(DB_TG), &state->new_file);
  state->bits = (state->current.exists ? older_there : 0) | (state->working.exists ? working_there : 0);
  if (!state->current.exists && state->new_file.exists) state->bits |= new_there;
  return rc;
}

struct group_areas {
  explicit group_areas(void* owner) : task(owner) {}
  ~group_areas() {
    for (void* area : {static_cast<void*>(older), static_cast<void*>(record), static_cast<void*>(names)})
      if (area) co_free_int(task, area, "db_mig_tg");
  }
  group_areas(const group_areas&) = delete;
  group_areas& operator=(const group_areas&) = delete;
  unsigned char* take(std::uint32_t size, const char* tag) const {
    auto* area = static_cast<unsigned char*>(co_malloc(task, size, CO_MEM_PRIVATE, tag));
    if (!area) co_log2(task, 36355, 0, 0, 0, "%s", tag);
    return area;
  }
  void* task;
  unsigned char* older = nullptr;
  unsigned char* record = nullptr;
  unsigned char* names = nullptr;
  std::uint16_t count = 0;
};

std::int16_t list_groups(const conversion& run, const char* directory, group_areas* areas) {
  directory_names all(run.task);
  if (all.load(directory) != DBE_OK) return DBE_IO_ERROR;
  const std::uint32_t room = all.count() * name_len;
  areas->older = areas->take(group_len, "db_mig_tg_old_grp");
  areas->record = areas->take(group_len, "db_mig_tg_new_grp");
  areas->names = areas->take(room + name_len, "db_mig_tg_names");
  if (!areas->older || !areas->record || !areas->names) return DBE_IO_ERROR;
  if (all.count() == 0) return DBE_OK;
  const std::int16_t rc =
      textrec::start_list_parsed(run.task, directory, name_len, areas->names, room, &areas->count);
  return ok_or(rc == DBE_OK, DBE_IO_ERROR);
}

std::int16_t convert_group(const conversion& run, const char* directory, const group_areas& areas, std::uint16_t i,
                           new_file* file) {
  const textrec::parsed_source source = {DB_TG, directory, textrec::older_key_len, textrec::older_group_keywords};
  char name[name_len + 1] = {};
  std::memcpy(name, areas.names + std::uint32_t{i} * name_len, name_len);
  const void* keys[] = {name};
  std::int16_t rc = textrec::get_parsed(run.task, source, 1, keys, areas.older, textrec::older_group_len);
  if (rc != DBE_OK) {
    ZVR_TRACE(run.task, 5, 2, "reading group %s returned %hx", name, static_cast<unsigned short>(rc));
    tell_unreadable(run, source, name, textrec::older_group_len, rc);
    return DBE_MIGRATION;
  }
  copy_tg_rec(areas.record, areas.older);
  if (run.dry_run) return DBE_OK;
  group_key key = {DB_TG, {}, 0};
  std::memcpy(key.name, areas.record, sizeof key.name);
  rc = file->put(DB_TG, &key, areas.record, group_len);
  if (rc == DBE_NO_TARGET) tell_note(run, 0, "the group %s has a member that is no target", name);
  return ok_or(stored(rc), rc);
}

std::int16_t convert_groups(const conversion& run, const char* directory) {
  group_areas areas(run.task);
  std::int16_t rc = list_groups(run, directory, &areas);
  if (rc != DBE_OK) return rc;
  new_file file(run);
  if (!run.dry_run) rc = file.open(DB_TG, building::anew);
  for (std::uint16_t i = 0; i < areas.count && rc == DBE_OK; ++i) {
    rc = convert_group(run, directory, areas, i, &file);
    if (rc == DBE_OK) tell_progress(run, i + 1u, areas.count);
  }
  if (rc == DBE_OK) rc = file.commit();
  if (rc != DBE_OK) return rc;
  tell_count(run, "target groups", areas.count);
  return file.close();
}

std::int16_t convert(conversion& run, const char* directory) {
  if (run.dry_run) return convert_groups(run, directory);
  std::int16_t rc = need_names(run);
  if (rc == DBE_OK) rc = convert_groups(run, directory);
  if (rc != DBE_OK) return rc;
  file_path from;
  file_path done;
  if (!database_path(run.task, directory, from) || !database_path(run.task, "target_group.old.done", done))
    return DBE_IO_ERROR;
  rm_dir_if_there(run, "target_group.old.done");  // of an earlier one: it would stand in the way
  rc = rename_path(run, from, done);
  return rc == DBE_OK ? rm_dir_if_there(run, "target_group.old.done") : rc;
}

std::int16_t rename_and_convert(conversion& run, const group_state& state) {
  if (run.dry_run) return convert(run, state.current.name);
  file_path working;
  if (!database_path(run.task, "target_group.old", working)) return DBE_IO_ERROR;
  const std::int16_t rc = rename_path(run, state.current.path, working);
  return rc == DBE_OK ? convert(run, "target_group.old") : rc;
}

std::int16_t remove_and_convert(conversion& run, const group_state& state) {
  const std::int16_t rc =
      run.dry_run ? static_cast<std::int16_t>(DBE_OK) : remove_new_file(run, DB_TG, state.new_file.path);
  return rc == DBE_OK ? convert(run, state.working.name) : rc;
}

}  // namespace

std::int16_t db_mig_tg(conversion& run) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  group_state state;
  rc = check_stat_tg(run, &state);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  switch (state.bits) {
    case new_there:
      tell_begin(run, "converted", false);
      return rc = run.dry_run ? rc : rm_dir_if_there(run, "target_group.old.done");
    case working_there:
      tell_begin(run, "conversion was cut short, begins anew", true);
      return rc = convert(run, state.working.name);
    case working_there | new_there:
      tell_begin(run, "conversion was cut short, begins anew", true);
      return rc = remove_and_convert(run, state);
    case older_there:
      tell_begin(run, "older layout", true);
      return rc = rename_and_convert(run, state);
    case 0:
      tell_begin(run, "neither an older directory nor a record file", true);
      return rc = DBE_IO_ERROR;
    default:
      tell_begin(run, "a state that no conversion leaves", true);
      return rc = DBE_MIGRATION;
  }
}

}  // namespace zvrdb::migration
