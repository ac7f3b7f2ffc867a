// cms put, get, del, del-file: the status of a change file on a target.
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "cms_commands.h"
#include "json_output.h"
#include "record_table.h"
#include "session.h"
#include "status_read.h"

namespace zvradm {

namespace {

struct pair_options {
  std::string target, file;
  std::uint16_t status = 0;
  std::string details;
  bool as_table = false;
};

record_keys keys_of(const pair_options& options) {
  return record_keys(record_type_named("cms"), {options.target, options.file});
}

std::string call_of(const char* verb, const pair_options& options) {
  return std::string("cms ") + verb + " \"" + options.target + "\" \"" + options.file + "\"";
}

void put_pair(const globals& all, const pair_options& options) {
  const record_keys keys = keys_of(options);
  db_cms record{};
  std::vector<unsigned char> details;
  if (!from_hex(options.details, details) || details.size() > sizeof record.cm_details)
    throw usage_fault("--details takes at most " + std::to_string(sizeof record.cm_details) +
                      " bytes as hexadecimal digits");
  std::copy(options.target.begin(), options.target.end(), record.trg_name);
  record.cf_name = change_file_argument(options.file);
  record.cm_status = static_cast<std::uint8_t>(options.status);
  std::copy(details.begin(), details.end(), record.cm_details);
  const session s(base_directory(all));
  const std::int16_t code = db_put(s.task(), DB_CMS, keys.count(), keys.data(), &record, sizeof record);
  if (!is_stored(code)) throw library_refusal(call_of("put", options), code);
  print_json({{"rc", code}, {"code", code_name(code)}});
}

void get_pair(const globals& all, const pair_options& options) {
  const record_keys keys = keys_of(options);
  const session s(base_directory(all));
  const pair_status status = read_status(s.task(), keys);
  require_ok(call_of("get", options), status.code);
  const json object = status_json(status);
  if (!options.as_table) return print_json(object);
  table sheet{{"field", "value"}, {}, {}};
  for (const auto& [name, value] : object.items())
    sheet.rows.push_back({name, name == "cf_name" ? options.file : cell_text(value)});
  print_table(sheet, stdout);
}

void del_pair(const globals& all, const pair_options& options) {
  const record_keys keys = keys_of(options);
  const session s(base_directory(all));
  require_ok(call_of("del", options), db_del(s.task(), DB_CMS, keys.count(), keys.data()));
}

void del_file(const globals& all, const pair_options& options) {
  const record_keys keys(record_type_named("cat"), {options.file});
  const session s(base_directory(all));
  // The call itself takes an unknown name for a change file without status.
  const std::string what = "cms del-file \"" + options.file + "\"";
  db_cf_name name;
  require_ok(what, db_get(s.task(), DB_CAT, keys.count(), keys.data(), &name, sizeof name));
  require_ok(what, db_del_cf_cms(s.task(), keys.data()[0]));
}

void add_target_and_file(CLI::App& sub, pair_options& options) {
  sub.add_option("TARGET", options.target, "Target")->required();
  sub.add_option("FILE", options.file, "Change file, dots between its tokens")->required();
}

}  // namespace

void add_cms_pair(CLI::App& cms, globals& all) {
  auto options = std::make_shared<pair_options>();
  CLI::App& put = *cms.add_subcommand("put", "Store the status of a change file on a target");
  add_target_and_file(put, *options);
  put.add_option("STATUS", options->status, "0 to 255")
      ->required()
      ->type_name("")
      ->check(CLI::Range(0, 255).description(""));
  put.add_option("--details", options->details, "Up to 32 bytes as hexadecimal digits; zero when left out")
      ->type_name("HEX");
  put.footer(R"(Answers {"rc":0,"code":"DBE_OK"} for a new pair, 8196 for one whose status was replaced.
When the answer is printed the status is stored on both sides, of the target and of the
change file. In lists 15 stands for no status and 128 for the default status, so these
two are better not stored.

Example:
  zvradm cms put OSLO 'DEB.libc6.FIX.2\.36' 5 --details 00ff)");
  put.callback([&all, options] { put_pair(all, *options); });
  CLI::App& get = *cms.add_subcommand("get", "Print the status of a change file on a target");
  add_target_and_file(get, *options);
  get.add_flag("--table", options->as_table, "A table for people, a field a line");
  get.footer(R"(A pair without a record has the default status 128, marked "default":true, on a local
target when the change file asks for it (bit 32 of cf_flags) or AUTHORIZE is ALL in
orvo.cfg.

Example:
  zvradm cms get OSLO 'DEB.libc6.FIX.2\.36' --table)");
  get.callback([&all, options] { get_pair(all, *options); });
  CLI::App& del = *cms.add_subcommand("del", "Delete the status of a change file on a target");
  add_target_and_file(del, *options);
  del.footer(R"(Both sides go, that of the target and that of the change file. A pair without a record
answers 8194, even when it has the default status.

Example:
  zvradm cms del OSLO 'DEB.libc6.FIX.2\.36')");
  del.callback([&all, options] { del_pair(all, *options); });
  CLI::App& whole = *cms.add_subcommand("del-file", "Delete the status of a change file on all targets");
  whole.add_option("FILE", options->file, "Change file, dots between its tokens")->required();
  whole.footer(R"(A change file that has no status on any target can be deleted.

Example:
  zvradm cms del-file 'DEB.libc6.FIX.2\.36' && zvradm del cat 'DEB.libc6.FIX.2\.36')");
  whole.callback([&all, options] { del_file(all, *options); });
}

}  // namespace zvradm
