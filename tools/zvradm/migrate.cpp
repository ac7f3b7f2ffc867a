// migrate: converts the database of an older release, looked through before anything is
// changed.
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "commands.h"
#include "config_file.h"
#include "json_output.h"
#include "progress.h"
#include "session.h"
#include "table_output.h"
#include "text_faults.h"

namespace zvradm {

namespace {

struct migrate_options {
  bool dry_run = false;
  bool again = false;
  bool as_json = false;
};

constexpr std::array<const char*, DB_MIG_STAGES> stage_names = {"catalog",       "targets",       "CM status",
                                                                "target groups", "authorization", "remote user"};

struct count_line {
  std::string kind;
  std::uint32_t number;
};

struct note_line {
  std::string text;
  std::int32_t message;  // number of the message that was logged, or 0
};

struct stage_result {
  bool begun = false;
  bool ended = false;
  bool to_do = false;
  std::string found;
  std::vector<count_line> counts;
  std::vector<note_line> notes;
  std::int16_t rc = DBE_OK;
};

// What one run of the library tells, stage by stage.
class run_report {
 public:
  explicit run_report(bool dry_run) : dry_run_(dry_run) {}
  static void watch(void* context, const db_mig_event* event) {
    auto* report = static_cast<run_report*>(context);
    if (event->stage < stage_names.size()) report->take(*event);
  }
  const std::array<stage_result, DB_MIG_STAGES>& stages() const { return stages_; }
  // Whether a stage that keeps a state of its own finds something to convert.
  bool anything_to_do() const {
    return std::any_of(stages_.begin(), stages_.begin() + DB_MIG_AUTHORIZATION,
                       [](const stage_result& stage) { return stage.to_do; });
  }
  // How many targets would get lost for want of room.
  std::uint32_t left_out() const {
    std::uint32_t number = 0;
    for (const count_line& count : stages_[DB_MIG_TARGETS].counts)
      if (count.kind == DB_MIG_LEFT_OUT) number += count.number;
    return number;
  }
  // The stage that failed first.
  std::size_t failed_stage() const {
    const auto at = std::find_if(stages_.begin(), stages_.end(), [](const stage_result& s) { return s.rc != DBE_OK; });
    return static_cast<std::size_t>(at - stages_.begin());
  }

 private:
  void take(const db_mig_event& event) {
    stage_result& stage = stages_[event.stage];
    switch (event.kind) {
      case DB_MIG_BEGIN:
        stage.begun = true;
        stage.to_do = event.total != 0;
        stage.found = event.text;
        progress_.emplace(std::string(dry_run_ ? "looking at " : "") + stage_names[event.stage], 0);
        break;
      case DB_MIG_PROGRESS:
        if (progress_) progress_->reached(event.done, event.total);
        break;
      case DB_MIG_NOTE:
        stage.notes.push_back({event.text, event.rc});
        break;
      case DB_MIG_COUNT:
        stage.counts.push_back({event.text, event.done});
        break;
      case DB_MIG_END:
        stage.ended = true;
        stage.rc = static_cast<std::int16_t>(event.rc);
        progress_.reset();
        break;
      default:
        break;
    }
  }
  bool dry_run_;
  std::array<stage_result, DB_MIG_STAGES> stages_;
  std::optional<progress> progress_;
};

json stage_json(std::size_t i, const stage_result& stage) {
  json counts = json::object();
  for (const count_line& count : stage.counts) counts[count.kind] = count.number;
  json notes = json::array();
  for (const note_line& note : stage.notes) {
    json one = {{"text", note.text}};
    if (note.message != 0) one["message"] = note.message;
    notes.push_back(one);
  }
  return {{"stage", stage_names[i]}, {"found", stage.found}, {"converted", counts},
          {"notes", notes},          {"rc", stage.rc},       {"code", code_name(stage.rc)}};
}

void print_stages_json(const run_report& report) {
  for (std::size_t i = 0; i < stage_names.size(); ++i)
    if (report.stages()[i].begun) print_json(stage_json(i, report.stages()[i]));
}

std::string counts_text(const stage_result& stage) {
  std::string text;
  for (const count_line& count : stage.counts) {
    if (!text.empty()) text += ", ";
    text += std::to_string(count.number) + " " + count.kind;
  }
  return text;
}

void print_stages(const run_report& report, bool dry_run) {
  table t{{"stage", "found", dry_run ? "would be converted" : "converted", "result"}, {}, {}};
  for (std::size_t i = 0; i < stage_names.size(); ++i) {
    const stage_result& stage = report.stages()[i];
    if (!stage.begun) continue;
    t.rows.push_back({stage_names[i], printable(stage.found), printable(counts_text(stage)),
                      stage.rc == DBE_OK ? "ok" : std::string(code_name(stage.rc)) + " (" + std::to_string(stage.rc) + ")"});
  }
  print_table(t, stdout);
  for (std::size_t i = 0; i < stage_names.size(); ++i)
    for (const note_line& note : report.stages()[i].notes)
      std::printf("%s: %s%s\n", stage_names[i], printable(note.text).c_str(),
                  note.message == 0 ? "" : (" [message " + std::to_string(note.message) + "]").c_str());
}

// Nothing else should run: other tasks would go on with files that are being replaced.
void require_nobody_else(void* task) {
  std::array<co_task_info, 16> tasks{};
  const std::uint32_t alive = co_live_tasks(task, tasks.data(), static_cast<std::uint32_t>(tasks.size()));
  if (alive <= 1) return;
  std::string text = "other tasks of the installation are alive; end them first:";
  for (std::size_t i = 0; i < std::min<std::size_t>(alive, tasks.size()); ++i)
    if (tasks[i].place != co_task_place(task))
      text += "\n  process " + std::to_string(tasks[i].process) + ", " + tasks[i].name;
  throw refusal(text);
}

std::string fault_text(const run_report& report, std::int16_t rc) {
  const std::size_t failed = report.failed_stage();
  std::string text = failed < stage_names.size() ? std::string("stage ") + stage_names[failed] : "the conversion";
  if (failed == stage_names.size()) return library_refusal(text, rc).what();
  // What the library found says more than the code's general meaning.
  const stage_result& stage = report.stages()[failed];
  text += ": " + (stage.notes.empty() ? stage.found : stage.notes.back().text);
  if (text.back() == '.') text.pop_back();
  return text + ": " + code_name(rc) + " (" + std::to_string(rc) + ")";
}

std::string left_out_text(const run_report& report) {
  return "MAX TARGETS of the base configuration has no room for " + std::to_string(report.left_out()) +
         " of the targets: raise it ('zvradm edit cfg', then 'zvradm reset')";
}

std::int16_t run_library(void* task, std::uint32_t options, run_report* report) {
  return db_mig_watched(task, options, run_report::watch, report);
}

void print_report(const run_report& report, const migrate_options& options, bool dry_run) {
  if (options.as_json)
    print_stages_json(report);
  else
    print_stages(report, dry_run);
}

// The library writes "orvo.cfg" in the older release's form, without most settings. A copy
// of before outlasts a conversion that is cut short.
void keep_config(const std::string& base) {
  if (std::filesystem::exists(kept_config_path(base))) return;
  std::ifstream file(config_path(base), std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file) throw refusal(config_path(base) + ": cannot be read");
  write_config_text(kept_config_path(base), text);
}

// Killed in the middle of its replacement the configuration has no file under its name.
void put_back_config(const std::string& base) {
  std::string text;
  if (!std::filesystem::exists(config_path(base)) && read_text_file(kept_config_path(base), text))
    write_config_text(config_path(base), text);
}

std::uint32_t limit_at(const config_record& record, std::size_t at) {
  std::uint32_t value = 0;
  std::memcpy(&value, record.data() + at, sizeof value);
  return value;
}

void set_limit(config_record& record, std::size_t at, std::uint32_t value) {
  std::memcpy(record.data() + at, &value, sizeof value);
}

// All settings of before, with the limit of local targets that the library has set. The
// older release had no limits of local and server targets; none at all would hide them.
void settle_config(void* task, const std::string& base) {
  constexpr std::uint32_t default_local_limit = 512;
  config_record record{};
  if (!read_config(kept_config_path(base), record)) return;
  void* area = co_croca(task, CO_AREA_CONFIG);
  if (!area) throw library_refusal(config_path(base), DBE_CO_FAILURE);
  config_record now{};
  std::memcpy(now.data(), area, now.size());
  const std::uint32_t local = limit_at(now, config_max_local_at);
  set_limit(record, config_max_local_at, local == 0 ? default_local_limit : local);
  const std::uint32_t targets = limit_at(record, config_max_targets_at);
  if (limit_at(record, config_max_server_at) == 0) set_limit(record, config_max_server_at, targets);
  write_config(task, config_path(base), record);
  // No call of the configuration's class: that would wait for tables in memory, which are
  // yet to be built, with these limits.
  std::memcpy(area, record.data(), record.size());
  std::filesystem::remove(kept_config_path(base));
}

void migrate(const globals& all, const migrate_options& options) {
  const std::string base = base_directory(all);
  if (!options.dry_run) put_back_config(base);
  const session s(base);
  if (!options.dry_run) require_nobody_else(s.task());
  run_report looked(true);
  const std::int16_t found = run_library(s.task(), DB_MIG_DRY_RUN, &looked);
  const bool refused = found != DBE_OK || looked.left_out() > 0;
  if (options.dry_run || refused) print_report(looked, options, true);
  if (refused)
    throw refusal((found != DBE_OK ? fault_text(looked, found) : left_out_text(looked)) +
                  (options.dry_run ? "" : "\nnothing was changed"));
  const bool nothing = !looked.anything_to_do() && !options.again;
  if (options.dry_run) {
    if (nothing && !options.as_json) std::printf("Converted already; there is nothing to do.\n");
    return;
  }
  if (nothing) {
    settle_config(s.task(), base);
    print_report(looked, options, true);
    if (!options.as_json) std::printf("Converted already; nothing was changed (--again writes keys and profiles anew).\n");
    return;
  }
  keep_config(base);
  run_report done(false);
  const std::int16_t rc = run_library(s.task(), 0, &done);
  if (rc == DBE_OK) settle_config(s.task(), base);
  print_report(done, options, false);
  if (rc != DBE_OK) throw refusal(fault_text(done, rc) + "\nmend that and run the command again: it goes on from here");
}

}  // namespace

void add_migrate(CLI::App& app, globals& all) {
  auto options = std::make_shared<migrate_options>();
  CLI::App& sub = *app.add_subcommand("migrate", "Convert the database of an older release in place");
  sub.add_flag("--dry-run", options->dry_run, "Look through everything and tell what would be done; change nothing");
  sub.add_flag("--again", options->again,
               "Run on a converted database too: access keys, profiles and \"remuser\" are written anew");
  sub.add_flag("--json", options->as_json, "A JSON line for each stage, for machines");
  sub.footer(R"(The older database is looked through first; when something stands in the way, it is told
and nothing is changed. A conversion that was cut short, by a kill too, goes on when the
command is run again. No other task of the installation may be alive. Make a copy of the
directory "db" before; of the older files only the catalog stays, as "catalog.old.done".

Examples:
  zvradm --base /srv/zvr migrate --dry-run
  zvradm --base /srv/zvr migrate)");
  sub.callback([&all, options] { migrate(all, *options); });
}

}  // namespace zvradm
