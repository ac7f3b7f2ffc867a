#include "status_matrix.h"

#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "change_file_name.h"
#include "refusals.h"

namespace zvradm {

namespace {

constexpr std::size_t name_width = sizeof(db_trg::trg_name);
constexpr std::size_t list_entries = 65535;  // the count of a list has 16 bits
constexpr std::size_t list_entry_length = 4;

struct listed_target {
  std::string name;
  std::uint32_t number;
};

std::vector<listed_target> read_targets(void* task, const std::string& pattern) {
  db_trg_filter filter{};
  if (pattern.size() >= sizeof filter.name)
    throw usage_fault("--targets is longer than " + std::to_string(sizeof filter.name - 1) + " bytes");
  std::memcpy(filter.name, pattern.data(), pattern.size());
  std::array<unsigned char, DB_TRG_LIST_STATE> state{};
  std::vector<listed_target> targets;
  std::int16_t code =
      db_init_list(task, DB_TRG, &filter, state.data(), static_cast<std::uint32_t>(state.size()));
  if (code == DBE_EMPTY_LIST) return targets;
  require_ok("list of targets", code);
  for (;;) {
    char name[name_width + 1] = {};
    code = db_get_more(task, DB_TRG, state.data(), name, name_width);
    if (code == DBE_END_OF_LIST) return targets;
    require_ok("list of targets", code);
    std::uint32_t number = 0;
    // One that went since has no number, and no row.
    if (db_get_trg_index(task, name, &number) == DBE_OK) targets.push_back({name, number});
  }
}

std::vector<db_cf_name> read_files(void* task, const std::string& pattern) {
  const db_cf_name filter = parse_change_file_name(pattern.empty() ? "*.*.*.*.*.*.*.*.*.*.*" : pattern);
  std::vector<unsigned char> list(list_entries * list_entry_length);
  std::uint16_t count = 0, index = 0;
  require_ok("list of change files", db_start_list(task, DB_CAT, &filter, list.data(),
                                                   static_cast<std::uint32_t>(list.size()), &count, &index));
  std::vector<db_cf_name> files;
  for (;;) {
    db_cf_name name{};
    const std::int16_t code = db_get_next(task, DB_CAT, list.data(), count, &index, &name, sizeof name);
    if (code == DBE_END_OF_LIST) return files;
    // Deleted since the list was made, or its place taken by another.
    if (code == DBE_NOT_FOUND || code == DBE_ENTRY_CHANGED) continue;
    require_ok("list of change files", code);
    files.push_back(name);
  }
}

// One more than the highest number that a target can have.
std::uint32_t state_list_length(void* task) {
  db_cfg config{};
  require_ok("base configuration", db_get(task, DB_CFG, 0, nullptr, &config, sizeof config));
  return config.max_targets + 1;
}

}  // namespace

std::vector<state_count> count_states(const status_matrix& matrix) {
  std::array<std::size_t, 256> pairs{};
  for (const std::uint8_t state : matrix.states) ++pairs[state];
  std::vector<state_count> counts;
  for (std::size_t state = 0; state < pairs.size(); ++state)
    if (pairs[state] > 0) counts.push_back({static_cast<std::uint8_t>(state), pairs[state]});
  return counts;
}

std::string state_words(std::uint8_t state) {
  if (state == no_status) return "no status";
  if (state == default_status) return "default";
  return "status " + std::to_string(state);
}

status_matrix read_status_matrix(void* task, const std::string& target_filter,
                                 const std::string& file_filter) {
  const std::vector<listed_target> targets = read_targets(task, target_filter);
  std::vector<db_cf_name> files = read_files(task, file_filter);
  std::vector<std::uint8_t> list(state_list_length(task));
  status_matrix matrix;
  for (const listed_target& t : targets) matrix.targets.push_back(t.name);
  matrix.states.assign(targets.size() * files.size(), no_status);
  for (std::size_t f = 0; f < files.size(); ++f) {
    matrix.files.push_back(change_file_text(files[f]));
    const std::int16_t code =
        db_cm_by_cat(task, &files[f], list.data(), static_cast<std::uint32_t>(list.size()));
    if (code == DBE_NOT_FOUND) continue;  // deleted since it was listed
    require_ok("states of " + matrix.files.back(), code);
    for (std::size_t t = 0; t < targets.size(); ++t)
      if (targets[t].number < list.size()) matrix.states[t * files.size() + f] = list[targets[t].number];
  }
  return matrix;
}

}  // namespace zvradm
