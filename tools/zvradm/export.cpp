// export [TYPE...]: the records of an installation as JSON lines.
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <array>
#include <cstring>
#include <memory>

#include "change_file_list.h"
#include "change_file_name.h"
#include "commands.h"
#include "correlator_export.h"
#include "json_output.h"
#include "named_targets.h"
#include "progress.h"
#include "record_keys.h"
#include "request_list.h"
#include "server_order.h"
#include "session.h"
#include "status_read.h"
#include "text_types.h"

namespace zvradm {

namespace {

constexpr std::array exported_types{"trg", "prm", "thw", "sht", "tg",  "dtg", "apr", "usr", "tak",
                                    "dak", "cat", "prd", "fst", "cms", "rqr", "rqf", "fan", "rqd",
                                    "rqt", "rqv", "coo", "scn", "scf", "rte", "ucf"};
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

void export_targets(const std::vector<ordered_target>& targets) {
  for (const std::size_t at : servers_first(targets)) {
    const std::string line = targets[at].line + "\n";
    if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size())
      throw refusal("standard output cannot be written");
  }
}

void tell(const std::string& text) {
  std::fflush(stdout);
  std::fprintf(stderr, "zvradm: %s\n", text.c_str());
}

void export_change_files(void* task, const record_type& type) {
  const list_changes changes = read_change_files(
      task, every_change_file(), type.get_length, "export cat",
      [&](const db_cat_entry&, std::span<const unsigned char> record) { print_json(typed(type, record)); });
  tell_changes("export cat", changes);
}

// Products or filesets of one change file; false when they are there and cannot be read.
bool export_products_of(void* task, const record_type& type, const db_cf_name& name) {
  db_prd_key filter{};
  filter.cf_name = name;
  std::array<unsigned char, DB_PRODUCT_LIST_STATE> area{};
  std::int16_t code = db_init_list(task, type.db_id, &filter, area.data(), area.size());
  if (code == DBE_NOT_FOUND) return true;  // deleted meanwhile
  const std::string what = std::string("export ") + type.suffix + " of \"" + change_file_text(name) + "\"";
  if (code == DBE_EMPTY_LIST) {
    tell(what + ": a list of products cannot be asked for by a name with '*' in its first token");
    return false;
  }
  require_ok(what, code);
  std::vector<unsigned char> record(type.get_length);
  for (;;) {
    std::fill(record.begin(), record.end(), static_cast<unsigned char>(0));
    code = db_get_more(task, type.db_id, area.data(), record.data(), type.get_length);
    if (code == DBE_END_OF_LIST) return true;
    if (code == DBE_NOT_FOUND) {
      // Its number is above the count of change files: see "Limits" of the operation page.
      tell(library_refusal(what, code).what());
      return false;
    }
    require_ok(what, code);
    print_json(typed(type, record));
  }
}

bool export_products(void* task, const record_type& type, const std::vector<numbered_change_file>& files) {
  bool whole = true;
  progress shown(std::string("exporting ") + type.suffix, files.size());
  std::uint64_t done = 0;
  for (const numbered_change_file& file : files) {
    whole = export_products_of(task, type, file.name) && whole;
    shown.reached(++done);
  }
  return whole;
}

// Stored status, target by target, in the order of the names.
bool export_status(void* task, const record_type& type, const std::vector<ordered_target>& targets,
                   const std::vector<numbered_change_file>& files) {
  std::uint64_t nameless = 0, done = 0;
  progress shown("exporting cms", targets.size());
  for (const ordered_target& target : targets) {
    shown.reached(done++);
    std::uint32_t number = 0;
    if (db_get_trg_index(task, target.name.c_str(), &number) == DBE_NO_TARGET) continue;  // deleted meanwhile
    status_map states = read_stored_status(task, target.name, "export cms");
    if (states.empty()) continue;
    for (const numbered_change_file& file : files) {
      if (states.erase(file.number) == 0) continue;
      const pair_status pair =
          read_status(task, record_keys(type, {target.name, change_file_text(file.name)}));
      if (pair.code == DBE_NOT_FOUND || pair.is_default) continue;  // deleted meanwhile
      require_ok("export cms", pair.code);
      std::array<unsigned char, sizeof pair.record> bytes;
      std::memcpy(bytes.data(), &pair.record, bytes.size());
      print_json(typed(type, bytes));
    }
    nameless += states.size();
  }
  if (nameless != 0)
    tell("export cms: " + std::to_string(nameless) +
         " pairs are of change files that are not in the catalog: left out");
  return nameless == 0;
}

// Users, profiles or groups, in the order of their names; false when a name of a target
// among them is one of none.
bool export_by_name(void* task, const record_type& type) {
  const std::string what = std::string("export ") + type.suffix;
  char filter[] = "*";
  std::array<unsigned char, list_area_length> area{};
  require_ok(what, db_init_list(task, type.db_id, filter, area.data(), list_area_length));
  std::vector<unsigned char> record(type.get_length);
  progress shown("exporting " + std::string(type.suffix), 0);
  bool whole = true;
  for (std::uint64_t done = 0;; ++done) {
    shown.reached(done);
    const std::int16_t code = db_get_more(task, type.db_id, area.data(), record.data(), type.get_length);
    if (code == DBE_END_OF_LIST) return whole;
    require_ok(what, code);
    for (const std::string& name : drop_unknown_targets(task, type, record)) {
      whole = false;
      tell(what + ": " + record_to_json(type, record)[type.fields.front().name].dump() + " names \"" + name +
           "\", which is no target any more: left out");
    }
    print_json(typed(type, record));
  }
}

// A table of access keys; there may be none.
void export_table(void* task, const record_type& type) {
  std::vector<unsigned char> record(type.get_length);
  const std::int16_t code = db_get(task, type.db_id, 0, nullptr, record.data(), type.get_length);
  if (code == DBE_NOT_FOUND) return;
  require_ok(std::string("export ") + type.suffix, code);
  print_json(typed(type, record));
}

void export_requests(void* task, const record_type& type) {
  read_requests(task, type, filter_bytes(type, {}), type.get_length,
                [&](std::span<const unsigned char> record) { print_json(typed(type, record)); });
}

void export_correlators(void* task, const std::string& base, const record_type& type) {
  for (const db_coo& record : read_correlators(task, base)) {
    std::array<unsigned char, sizeof record> bytes;
    std::memcpy(bytes.data(), &record, bytes.size());
    print_json(typed(type, bytes));
  }
}

// One text record; false when it is there and cannot be read.
bool export_text(void* task, const record_type& type, const std::vector<std::string>& key) {
  std::vector<unsigned char> record(65535);
  const record_keys keys(type, key);
  const std::int16_t code =
      db_get(task, type.db_id, keys.count(), keys.data(), record.data(), type.get_length);
  if (code == DBE_NOT_FOUND) return true;
  if (code == DBE_OK)
    print_json(typed(type, {record.data(), type.get_length}));
  else
    tell(library_refusal(call_text("get", type, key), code).what());
  return code == DBE_OK;
}

bool export_text_records(void* task, const record_type& type) {
  prepare_text_record(task, type.db_id);
  if (type.db_id != DB_SCN) return export_text(task, type, {});
  constexpr std::uint32_t width = sizeof(db_scn::connection);
  std::vector<char> list(65535 * width);
  std::uint16_t count = 0, index = 0;
  require_ok("export scn", db_start_list(task, DB_SCN, nullptr, list.data(),
                                         static_cast<std::uint32_t>(list.size()), &count, &index));
  bool whole = true;
  for (std::uint32_t i = 0; i < count; ++i) {
    const char* name = list.data() + i * width;
    whole = export_text(task, type, {std::string(name, strnlen(name, width))}) && whole;
  }
  return whole;
}

bool is_asked(const std::vector<std::string>& asked, const char* suffix) {
  return asked.empty() || std::find(asked.begin(), asked.end(), suffix) != asked.end();
}

int export_types(const globals& all, const std::vector<std::string>& asked) {
  for (const std::string& suffix : asked) {
    (void)record_type_named(suffix);
    if (std::find(exported_types.begin(), exported_types.end(), suffix) == exported_types.end())
      throw usage_fault("type " + suffix + " is not exported: it belongs to the installation itself");
  }
  const session s(base_directory(all));
  std::vector<ordered_target> targets;
  std::vector<numbered_change_file> files;
  for (const char* of_target : {"trg", "prm", "thw", "sht", "cms"})
    if (targets.empty() && is_asked(asked, of_target)) targets = read_targets(s.task());
  for (const char* of_file : {"prd", "fst", "cms"})
    if (files.empty() && is_asked(asked, of_file)) files = list_numbered_change_files(s.task(), "export");
  bool whole = true;
  for (const char* suffix : exported_types) {
    if (!is_asked(asked, suffix)) continue;
    const record_type& type = record_type_named(suffix);
    if (is_request(type)) {
      export_requests(s.task(), type);
      continue;
    }
    switch (type.db_id) {
      case DB_TRG:
        export_targets(targets);
        break;
      case DB_CAT:
        export_change_files(s.task(), type);
        break;
      case DB_PRD:
      case DB_FST:
        whole = export_products(s.task(), type, files) && whole;
        break;
      case DB_TG:
      case DB_DTG:
      case DB_APR:
      case DB_USR:
        whole = export_by_name(s.task(), type) && whole;
        break;
      case DB_TAK:
      case DB_DAK:
        export_table(s.task(), type);
        break;
      case DB_CMS:
        whole = export_status(s.task(), type, targets, files) && whole;
        break;
      case DB_COO:
        export_correlators(s.task(), base_directory(all), type);
        break;
      case DB_SCN:
      case DB_SCF:
      case DB_RTE:
      case DB_UCF:
        whole = export_text_records(s.task(), type) && whole;
        break;
      default:
        export_by_target(s.task(), type, targets);
    }
  }
  return whole ? exit_done : exit_refused;
}

}  // namespace

void add_export(CLI::App& app, globals& all) {
  auto types = std::make_shared<std::vector<std::string>>();
  CLI::App& sub = *app.add_subcommand("export", "Print the records of the installation as JSON lines");
  sub.add_option(
      "TYPE", *types,
      "Record types: trg, prm, thw, sht, tg, dtg, apr, usr, tak, dak, cat, prd, fst, cms, rqr, rqf, "
      "fan, rqd, rqt, rqv, coo, scn, scf, rte, ucf; all when left out");
  sub.footer(R"(Each line has a "type"; fields that are zero or empty are left out, and so are those
that belong to this installation only (in_use, trg_status, srv_num). A server stands
before its clients; groups and users stand behind the targets that they name, and deleted
users are left out. Change files, products, filesets and CM status name each other and
targets by name, so their numbers do not matter. Imported into an empty installation with the same local target,
the same text comes out again.

Examples:
  zvradm --base /srv/zvr export > all.jsonl
  zvradm --base /srv/zvr export trg
  zvradm --base /srv/zvr export cat cms)");
  sub.callback([&all, types] { all.answer = export_types(all, *types); });
}

}  // namespace zvradm
