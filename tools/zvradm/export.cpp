// export [TYPE...]: the records of an installation as JSON lines.
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <array>
#include <memory>

#include "commands.h"
#include "json_output.h"
#include "progress.h"
#include "record_keys.h"
#include "server_order.h"
#include "session.h"

namespace zvradm {

namespace {

constexpr std::array exported_types{"trg", "prm", "thw", "sht"};
constexpr std::uint32_t list_area_length = DB_TRG_LIST_STATE;

json typed(const record_type& type, std::span<const unsigned char> record) {
  json line{{"type", type.suffix}};
  line.update(record_to_json(type, record, {.words = false, .transferable = true}));
  return line;
}

std::string text_of(const json& object, const char* name) {
  const auto member = object.find(name);
  return member == object.end() ? std::string() : json_line(*member);
}

// All targets, in the order of their names.
std::vector<ordered_target> read_targets(void* task) {
  const record_type& type = record_type_named("trg");
  db_trg_filter filter{};
  std::array<unsigned char, list_area_length> area{};
  require_ok("export trg", db_init_list(task, type.db_id, &filter, area.data(), list_area_length));
  std::vector<ordered_target> targets;
  std::vector<unsigned char> record(65535);
  progress shown("reading targets", 0);
  for (;;) {
    std::fill_n(record.begin(), type.get_length, static_cast<unsigned char>(0));
    const std::int16_t code = db_get_more(task, type.db_id, area.data(), record.data(), type.get_length);
    if (code == DBE_END_OF_LIST) return targets;
    if (code == DBE_NOT_FOUND) continue;  // deleted meanwhile
    require_ok("export trg", code);
    const json line = typed(type, {record.data(), type.get_length});
    const auto name_end = std::find(record.begin(), record.begin() + 64, static_cast<unsigned char>(0));
    targets.push_back({std::string(record.begin(), name_end), text_of(line, "trg_name"),
                       text_of(line, "srv_name"), json_line(line)});
    shown.reached(targets.size());
  }
}

// The records of a type that hang on targets, in the targets' order.  The name in such
// a record is the one its target had when it was stored; the present one is told.
void export_by_target(void* task, const record_type& type, const std::vector<ordered_target>& targets) {
  std::vector<unsigned char> record(65535);
  progress shown(std::string("exporting ") + type.suffix, targets.size());
  std::uint64_t done = 0;
  for (const ordered_target& target : targets) {
    shown.reached(done++);
    const record_keys keys(type, {target.name});
    std::fill_n(record.begin(), type.get_length, static_cast<unsigned char>(0));
    const std::int16_t code =
        db_get(task, type.db_id, keys.count(), keys.data(), record.data(), type.get_length);
    if (code == DBE_NOT_FOUND || code == DBE_NO_TARGET) continue;
    require_ok(call_text("get", type, {target.name}), code);
    std::fill_n(record.begin(), 64, static_cast<unsigned char>(0));
    std::copy_n(target.name.begin(), std::min<std::size_t>(target.name.size(), 63), record.begin());
    print_json(typed(type, {record.data(), type.get_length}));
  }
}

void export_types(const globals& all, const std::vector<std::string>& asked) {
  for (const std::string& suffix : asked) {
    (void)record_type_named(suffix);
    if (std::find(exported_types.begin(), exported_types.end(), suffix) == exported_types.end())
      throw usage_fault("type " + suffix + " is not exported: it belongs to the installation itself");
  }
  const session s(base_directory(all));
  const std::vector<ordered_target> targets = read_targets(s.task());
  for (const char* suffix : exported_types) {
    if (!asked.empty() && std::find(asked.begin(), asked.end(), suffix) == asked.end()) continue;
    const record_type& type = record_type_named(suffix);
    if (type.db_id != DB_TRG) {
      export_by_target(s.task(), type, targets);
      continue;
    }
    for (const std::size_t at : servers_first(targets)) {
      const std::string line = targets[at].line + "\n";
      if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size())
        throw refusal("standard output cannot be written");
    }
  }
}

}  // namespace

void add_export(CLI::App& app, globals& all) {
  auto types = std::make_shared<std::vector<std::string>>();
  CLI::App& sub = *app.add_subcommand("export", "Print the records of the installation as JSON lines");
  sub.add_option("TYPE", *types, "Record types: trg, prm, thw, sht; all when left out");
  sub.footer(R"(Each line has a "type"; fields that are zero or empty are left out, and so are those
that belong to this installation only (in_use, trg_status, srv_num). A server stands
before its clients. Imported into an empty installation with the same local target,
the same text comes out again.

Examples:
  zvradm --base /srv/zvr export > all.jsonl
  zvradm --base /srv/zvr export trg)");
  sub.callback([&all, types] { export_types(all, *types); });
}

}  // namespace zvradm
