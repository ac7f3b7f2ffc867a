// cms by-file and by-target: CM status both ways.
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <memory>

#include "change_file_list.h"
#include "change_file_name.h"
#include "cms_commands.h"
#include "control_block.h"
#include "json_output.h"
#include "progress.h"
#include "session.h"
#include "status_read.h"
#include "table_output.h"
#include "target_list.h"

namespace zvradm {

namespace {

struct lists_options {
  std::string name;  // of the file or of the target
  bool as_table = false;
};

// Lines with a name and a status, as JSON or as one table.
class status_printer {
 public:
  status_printer(const char* name_field, bool as_table)
      : field_(name_field),
        as_table_(as_table),
        table_{{name_field, "cm_status", "remark"}, {}, {false, true}} {}
  void add(const json& name, const std::string& text, std::uint32_t status, bool is_default) {
    if (as_table_) {
      table_.rows.push_back({text, std::to_string(status), is_default ? "default" : ""});
      return;
    }
    json line{{field_, name}, {"cm_status", status}};
    if (is_default) line["default"] = true;
    print_json(line);
  }
  // A pair whose other side is known by its number only.
  void add_nameless(const char* number_field, std::uint32_t number, std::uint32_t status) {
    if (as_table_)
      table_.rows.push_back(
          {"(number " + std::to_string(number) + ")", std::to_string(status), "no such record"});
    else
      print_json({{number_field, number}, {"cm_status", status}});
  }
  void end() const {
    if (as_table_) print_table(table_, stdout);
  }

 private:
  const char* field_;
  bool as_table_;
  table table_;
};

json text_or_hex(const std::string& bytes) {
  if (is_utf8(bytes)) return bytes;
  return json{{"hex", to_hex(std::vector<unsigned char>(bytes.begin(), bytes.end()))}};
}

// ---- by-file

std::vector<std::uint8_t> states_of(void* task, const std::string& what, const record_keys& file,
                                    const std::vector<numbered_target>& targets) {
  std::uint32_t highest = read_control_block(task).num_trgs_allowed;
  for (const numbered_target& target : targets) highest = std::max(highest, target.number);
  std::vector<std::uint8_t> states(std::size_t{highest} + 1, no_status);
  require_ok(what, db_cm_by_cat(task, file.data()[0], states.data(), highest + 1));
  return states;
}

// Whether 128 in the list is the default status, or what a client stored.
bool is_default(void* task, const std::string& target, const std::string& file) {
  return read_status(task, record_keys(record_type_named("cms"), {target, file})).is_default;
}

void list_by_file(const globals& all, const lists_options& options) {
  const record_keys file(record_type_named("cat"), {options.name});
  const session s(base_directory(all));
  const std::string what = "cms by-file \"" + options.name + "\"";
  const std::vector<numbered_target> targets = list_numbered_targets(s.task(), what);
  std::vector<std::uint8_t> states = states_of(s.task(), what, file, targets);
  status_printer printer("trg_name", options.as_table);
  progress shown("reading status", targets.size());
  std::uint64_t done = 0;
  for (const numbered_target& target : targets) {
    shown.reached(done++);
    std::uint8_t& state = states[target.number];
    if (state != no_status)
      printer.add(text_or_hex(target.name), target.name, state,
                  state == default_status && is_default(s.task(), target.name, options.name));
    state = no_status;
  }
  // What is left belongs to targets that are gone; it keeps the change file from being
  // deleted.
  for (std::size_t number = 1; number < states.size(); ++number)
    if (states[number] != no_status && states[number] != default_status)
      printer.add_nameless("trg_number", static_cast<std::uint32_t>(number), states[number]);
  printer.end();
}

// ---- by-target

void list_by_target(const globals& all, const lists_options& options) {
  const record_keys checked(record_type_named("trg"), {options.name});
  const session s(base_directory(all));
  const std::string what = "cms by-target \"" + options.name + "\"";
  status_map states = read_stored_status(s.task(), options.name, what);
  status_printer printer("cf_name", options.as_table);
  if (states.empty()) return printer.end();
  for (const numbered_change_file& file : list_numbered_change_files(s.task(), what)) {
    const auto found = states.find(file.number);
    if (found == states.end()) continue;
    printer.add(change_file_json(file.name), change_file_text(file.name), found->second, false);
    states.erase(found);
  }
  for (const auto& [number, status] : states) printer.add_nameless("cf_number", number, status);
  printer.end();
}

}  // namespace

void add_cms_lists(CLI::App& cms, globals& all) {
  auto options = std::make_shared<lists_options>();
  CLI::App& file =
      *cms.add_subcommand("by-file", "List the status of a change file on all targets that have one");
  file.add_option("FILE", options->name, "Change file, dots between its tokens")->required();
  file.add_flag("--table", options->as_table, "A table for people");
  file.footer(R"(Targets stand in the order of their names. The default status of targets without a
record is marked "default":true. A target that is gone while its status is not is told by
"trg_number"; 'cms del-file' takes that away.

Example:
  zvradm cms by-file 'DEB.libc6.FIX.2\.36' --table)");
  file.callback([&all, options] { list_by_file(all, *options); });
  CLI::App& target = *cms.add_subcommand("by-target", "List the status of all change files on a target");
  target.add_option("TARGET", options->name, "Target")->required();
  target.add_flag("--table", options->as_table, "A table for people");
  target.footer(R"(Only status that is stored: default status is not listed. Change files stand in the order
of their names.

Example:
  zvradm cms by-target OSLO --table)");
  target.callback([&all, options] { list_by_target(all, *options); });
}

}  // namespace zvradm
