// The stage of the targets: what is found below "db" and what is done with it.
#include <initializer_list>

#include "memory/trace.h"
#include "migration/conversion.h"
#include "migration/new_files.h"
#include "migration/older_files.h"
#include "migration/target_conversion.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint8_t marked = 0xAA;

// Bits of what is there.
enum found : std::uint32_t {
  config_or_new = 1,  // "target_config" or "trgcfg"
  working = 2,        // "target_tmp"
  hardware = 4,       // "target_hw"
  parameters = 8,     // "parms"
  converted = 16      // "target_del"
};

struct state_row {
  std::uint32_t state;
  enum action { refuse, nothing, rename_first, convert, remove_first, clean_up } action;
  const char* text;
};
constexpr state_row states[] = {
    {config_or_new, state_row::nothing, "converted"},
    {config_or_new | hardware | parameters, state_row::rename_first, "older layout"},
    {working | hardware | parameters, state_row::convert, "conversion was cut short, begins anew"},
    {config_or_new | working | hardware | parameters, state_row::remove_first,
     "conversion was cut short, begins anew"},
    {config_or_new | converted, state_row::clean_up, "converted, to be tidied up"},
    {config_or_new | converted | parameters, state_row::clean_up, "converted, to be tidied up"},
    {config_or_new | converted | parameters | hardware, state_row::clean_up, "converted, to be tidied up"},
};
constexpr state_row no_directories = {0, state_row::refuse, "no directories of an older database"};
constexpr state_row unknown_state = {0, state_row::refuse, "a state that no conversion leaves"};

struct directories {
  older_entry config, working, hardware, parameters, converted, new_file;
};

// check_stat: 0 or 8455.
std::int16_t check_stat(const conversion& run, directories* there, std::uint32_t* state) {
  const struct {
    const char* name;
    older_entry directories::*place;
    std::uint32_t bit;
  } rows[] = {
      {"target_config", &directories::config, config_or_new}, {"trgcfg", &directories::new_file, config_or_new},
      {"target_tmp", &directories::working, working},         {"target_hw", &directories::hardware, hardware},
      {"parms", &directories::parameters, parameters},        {"target_del", &directories::converted, converted},
  };
  *state = 0;
  for (const auto& row : rows) {
    const std::int16_t rc = find_entry(run.task, row.name, &(there->*row.place));
    if (rc != DBE_OK) return rc;
    if ((there->*row.place).exists) *state |= row.bit;
  }
  return DBE_OK;
}

bool is_directory(const conversion& run, const older_entry& entry) {
  std::uint32_t directory = 0;
  if (!entry.exists || co_opendir(run.task, entry.path, &directory, 1) != CO_OK) return false;
  co_closedir(run.task, &directory);
  return true;
}

const state_row& row_of(const conversion& run, std::uint32_t state, const directories& there) {
  if (state == 0) return no_directories;
  // Older targets of which all else has been lost must not pass for converted ones: the stages
  // behind would take everything for that of unknown targets.
  if (state == config_or_new && !there.new_file.exists && is_directory(run, there.config)) return unknown_state;
  for (const state_row& row : states)
    if (row.state == state) return row;
  return unknown_state;
}

// "target_del" goes last, and not before the others have gone: without it the rest would be
// a state that no conversion leaves. The result is that of the last one tried.
std::int16_t clean_up(const conversion& run) {
  std::int16_t rc = DBE_OK;
  for (const char* name : {"target_hw", "parms", "target_del"}) {
    rc = rm_dir_if_there(run, name);
    older_entry left;
    if (rc != DBE_OK || find_entry(run.task, name, &left) != DBE_OK || left.exists) break;
  }
  return rc;
}

// A new file that a run had begun goes, under whichever of its names it is there.
std::int16_t remove_begun(const conversion& run, const directories& there) {
  const older_entry& begun = there.new_file.exists ? there.new_file : there.config;
  ZVR_TRACE(run.task, 2, 2, "ACTION_4: removing file %s", begun.path);
  return ok_or(remove_new_file(run, DB_TRG, begun.path) == DBE_OK, DBE_MIGRATION);
}

std::int16_t convert(conversion& run, const directories& there) {
  older_entry targets;
  std::int16_t rc = find_entry(run.task, "target_tmp", &targets);
  if (rc != DBE_OK) return rc;
  if (!targets.exists) targets = there.config;  // dry run
  rc = convert_targets(run, {targets.name, there.hardware.name, there.parameters.name});
  if (rc != DBE_OK || run.dry_run) return rc;
  file_path done;
  if (!database_path(run.task, "target_del", done)) return DBE_IO_ERROR;
  if (rename_path(run, targets.path, done) == DBE_OK) clean_up(run);
  return rc;
}

std::int16_t rename_to_working(const conversion& run, const directories& there) {
  file_path path;
  if (!database_path(run.task, "target_tmp", path)) return DBE_IO_ERROR;
  return rename_path(run, there.config.path, path);
}

std::int16_t act(conversion& run, const state_row& row, std::uint32_t state, const directories& there) {
  std::int16_t rc = DBE_OK;
  switch (row.action) {
    case state_row::nothing:
      return DBE_OK;
    case state_row::clean_up:
      return run.dry_run ? rc : clean_up(run);
    case state_row::rename_first:
      if (!there.config.exists) break;  // "trgcfg" with the older directories of parameters: no state of ours
      if (!run.dry_run) rc = rename_to_working(run, there);
      return rc == DBE_OK ? convert(run, there) : rc;
    case state_row::remove_first:
      if (!run.dry_run) rc = remove_begun(run, there);
      return rc == DBE_OK ? convert(run, there) : rc;
    case state_row::convert:
      return convert(run, there);
    case state_row::refuse:
      break;
  }
  if (state == 0)
    ZVR_TRACE(run.task, 5, 2, "%s", "No db directories");
  else
    ZVR_TRACE(run.task, 5, 2, "Invalid status value %d", static_cast<int>(state));
  tell_note(run, 0, "state %lu: %s", static_cast<unsigned long>(state), row.text);
  return DBE_MIGRATION;
}

}  // namespace

std::int16_t db_mig_trg(conversion& run) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  run.tcb->mig_marker = marked;
  directories there;
  std::uint32_t state = 0;
  rc = check_stat(run, &there, &state);
  if (rc != DBE_OK) {
    bracket.quitting();
    tell_begin(run, "\"db\" cannot be read", true);
    return rc;
  }
  const state_row& row = row_of(run, state, there);
  tell_begin(run, row.text, row.action != state_row::nothing);
  return rc = act(run, row, state, there);
}

}  // namespace zvrdb::migration
