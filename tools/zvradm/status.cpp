// status: what the shared state of an installation says, read without any lock.
#include <sys/stat.h>
#include <zvrco/zvrco.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>

#include "commands.h"
#include "config_file.h"
#include "control_block.h"
#include "journal_setting.h"
#include "json_output.h"
#include "local_target.h"
#include "record_fields.h"
#include "session.h"
#include "table_output.h"

namespace zvradm {

namespace {

struct status_options {
  bool as_json = false;
};

std::string bounded_text(const char* text, std::size_t width) {
  return {text, strnlen(text, width)};
}

json tasks_json(void* task) {
  std::vector<co_task_info> tasks(CO_MAX_TASKS);
  const std::uint32_t alive = co_live_tasks(task, tasks.data(), CO_MAX_TASKS);
  tasks.resize(std::min<std::size_t>(alive, tasks.size()));
  json all = json::array();
  for (const co_task_info& info : tasks) {
    if (info.place == co_task_place(task)) continue;  // this command itself
    all.push_back({{"place", info.place},
                   {"incarnation", info.incarnation},
                   {"process", info.process},
                   {"name", bounded_text(info.name, sizeof info.name)}});
  }
  return all;
}

json files_json(const zvrdb::DBR_CNTL& block, const std::string& base) {
  json all = json::array();
  for (const zvrdb::iocb& file : block.files)
    if (file.inited == 1) {
      const std::string name = bounded_text(file.name, sizeof file.name);
      struct stat journal {};
      all.push_back({{"name", name},
                     {"use_count", file.use_count},
                     {"journal", stat((base + "/db/" + name + ".jnl").c_str(), &journal) == 0}});
    }
  return all;
}

constexpr std::uint32_t most_change_files = 65535;  // numbers of 16 bits, one of which means none

std::uint32_t number_at(const config_record& config, std::size_t at) {
  return load_number(config.data() + at, 1);
}

json collect(void* task, const std::string& base) {
  const zvrdb::DBR_CNTL block = read_control_block(task);
  config_record config{};
  if (const void* area = co_croca(task, CO_AREA_CONFIG)) std::memcpy(config.data(), area, config.size());
  const auto number = [&](std::size_t at) { return load_number(config.data() + at, 4); };
  std::uint32_t signal = 0;
  (void)co_get_signal(task, 3, &signal);
  struct stat pending {};
  json all;
  all["base"] = base;
  all["shared_folder"] = co_shared_folder(task);
  all["local_target"] = local_target_name(task);
  all["configuration"] = config[config_kind_at];
  all["collation"] = co_collation_name(task);
  all["generation"] = block.shm_generation;
  all["built"] = block.finitialized;
  all["write_in_progress"] = block.fwrite_in_prog;
  all["text_records_repaired"] = block.fparsed_ok;
  all["generation_signal"] = signal;
  all["trace"] = *co_trace_word;
  all["local_dsu"] = bounded_text(block.local_dsu, sizeof block.local_dsu);
  all["targets"] = {{"actual", block.num_trgs_actual},
                    {"allowed", block.num_trgs_allowed},
                    {"configured", number(config_max_targets_at)}};
  all["local_targets"] = {{"actual", block.num_ltrg_actual},
                          {"allowed", block.num_ltrg_allowed},
                          {"configured", number(config_max_local_at)}};
  all["server_targets"] = {{"actual", block.num_srv_actual}, {"configured", number(config_max_server_at)}};
  // Numbers given out stay with their slots: those above the change files are free ones.
  // When they reach `allowed` the tables are built anew, larger.
  all["change_files"] = {{"actual", block.num_cat_actual},
                         {"allowed", block.num_cat_alloc},
                         {"numbers", block.num_cat_inited},
                         {"limit", most_change_files}};
  all["authorize"] = number_at(config, offsetof(db_cfg, authorize));
  all["groups"] = {{"actual", block.num_tg_actual}};
  all["dynamic_groups"] = {{"actual", block.num_dtg_actual}};
  all["pending_change"] = stat(pending_path(base).c_str(), &pending) == 0;
  all["tasks"] = tasks_json(task);
  // What the next process of this environment will open with; who is there already stays.
  const journal_view journal = view_journal(task);
  all["journal"] = journal.on;
  all["journal_source"] = journal.source;
  all["journal_note"] = journal.note;
  all["files"] = files_json(block, base);
  return all;
}

std::string yes_no(const json& value) {
  return value == 0 || value == false ? "no" : "yes";
}

std::string counts_text(const json& counts) {
  std::string text = json_line(counts["actual"]);
  if (counts.contains("allowed")) text += " of " + json_line(counts["allowed"]);
  if (counts.contains("configured") &&
      (!counts.contains("allowed") || counts["allowed"] != counts["configured"]))
    text += " (configured: " + json_line(counts["configured"]) + ")";
  return text;
}

std::string kind_text(const json& kind) {
  for (const word& w : installation_kinds())
    if (kind == w.value) return w.text;
  return json_line(kind);
}

void print_sheet(const json& all) {
  const auto line = [](const char* name, const std::string& value) {
    std::printf("%-20s %s\n", name, printable(value).c_str());
  };
  line("base", cell_text(all["base"]));
  line("shared folder", cell_text(all["shared_folder"]));
  line("local target", cell_text(all["local_target"]) + " (" + kind_text(all["configuration"]) + ")");
  line("local network", cell_text(all["local_dsu"]));
  line("collation", cell_text(all["collation"]));
  line("generation", json_line(all["generation"]) + (all["built"] == 0 ? ", not built yet" : ""));
  line("write in progress", yes_no(all["write_in_progress"]));
  line("targets", counts_text(all["targets"]));
  line("  local", counts_text(all["local_targets"]));
  line("  servers", counts_text(all["server_targets"]));
  const json& files_known = all["change_files"];
  line("change files", counts_text(files_known));
  const std::uint64_t given = files_known["numbers"].get<std::uint64_t>();
  const std::uint64_t used = files_known["actual"].get<std::uint64_t>();
  line("  numbers", std::to_string(given) + " given out, " + std::to_string(given - std::min(given, used)) +
                        " of them free; at most " + json_line(files_known["limit"]));
  line("default CM status", all["authorize"] == 1 ? "of all change files (AUTHORIZE is ALL)"
                                                  : "of change files that ask for it (cf_flags bit 32)");
  line("commit journals", journal_text({all["journal"] == true, all["journal_source"], all["journal_note"]}));
  line("trace", all["trace"] == 0 ? "off" : "on");
  if (all["pending_change"] == true)
    line("attention", "a change of the configuration was interrupted; repeat the init or rename-target");
  std::printf("\n");
  table files{{"file", "use count", "journal file"}, {}, {false, true, false}};
  for (const json& file : all["files"])
    files.rows.push_back({cell_text(file["name"]), json_line(file["use_count"]), yes_no(file["journal"])});
  if (files.rows.empty())
    std::printf("no record file has been opened yet\n");
  else
    print_table(files, stdout);
  std::printf("\n");
  if (all["tasks"].empty()) {
    std::printf("no other task is alive\n");
    return;
  }
  table tasks{{"task", "place", "incarnation", "process"}, {}, {false, true, true, true}};
  for (const json& task : all["tasks"])
    tasks.rows.push_back({cell_text(task["name"]), json_line(task["place"]), json_line(task["incarnation"]),
                          json_line(task["process"])});
  print_table(tasks, stdout);
}

void show_status(const globals& all, const status_options& options) {
  const std::string base = base_directory(all);
  const session s(base);
  const json status = collect(s.task(), base);
  if (options.as_json)
    print_json(status);
  else
    print_sheet(status);
}

}  // namespace

void add_status(CLI::App& app, globals& all) {
  auto options = std::make_shared<status_options>();
  CLI::App& sub = *app.add_subcommand("status", "Show the shared state of the installation");
  sub.add_flag("--json", options->as_json, "One JSON line, for machines");
  sub.footer(R"(Takes no semaphore: it answers while other tasks write, and after one was killed.
"write in progress" that stays without a live task means that a writer died; the next
call repairs it.

Examples:
  zvradm status
  zvradm status --json)");
  sub.callback([&all, options] { show_status(all, *options); });
}

}  // namespace zvradm
