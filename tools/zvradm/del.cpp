// del TYPE KEY...: deletes one record.
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <memory>

#include "change_file_list.h"
#include "change_file_name.h"
#include "commands.h"
#include "local_target.h"
#include "record_keys.h"
#include "session.h"
#include "status_read.h"
#include "text_types.h"

namespace zvradm {

namespace {

struct del_options {
  std::string type;
  std::vector<std::string> keys;
  bool force = false;
};

// The library takes CM status along with a local target only; of another one it would
// pass to the next target that gets the number.
void del_status_of_remote(void* task, const std::string& name) {
  const record_type& type = record_type_named("trg");
  const record_keys keys(type, {name});
  db_trg target{};
  if (db_get(task, DB_TRG, keys.count(), keys.data(), &target, target_head_length) != DBE_OK) return;
  if ((target.trg_type & DB_TRG_LOCAL) != 0) return;
  const std::string what = call_text("del", type, {name});
  status_map states = read_stored_status(task, name, what);
  if (states.empty()) return;
  for (const numbered_change_file& file : list_numbered_change_files(task, what)) {
    if (states.erase(file.number) == 0) continue;
    const record_keys pair(record_type_named("cms"), {name, change_file_text(file.name)});
    const std::int16_t code = db_del(task, DB_CMS, pair.count(), pair.data());
    if (code != DBE_NOT_FOUND) require_ok(what + ": its CM status", code);
  }
  if (!states.empty())
    throw refusal(
        what + ": it has CM status of " + std::to_string(states.size()) +
        " change files that are not in the catalog, which would pass to the next target with its number. "
        "The target was not deleted");
}

void del_one(const globals& all, const del_options& options) {
  const record_type& type = record_type_named(options.type);
  const record_keys keys(type, options.keys);
  const session s(base_directory(all));
  if (type.db_id == DB_TRG && options.keys[0] == local_target_name(s.task()) && !options.force)
    throw refusal("del trg \"" + options.keys[0] +
                  "\": this is the local target; without it the installation cannot build its tables. "
                  "Nothing was deleted; --force deletes it all the same");
  prepare_text_record(s.task(), type.db_id);
  if (type.db_id == DB_TRG) del_status_of_remote(s.task(), options.keys[0]);
  require_ok(call_text("del", type, options.keys), db_del(s.task(), type.db_id, keys.count(), keys.data()));
}

}  // namespace

void add_del(CLI::App& app, globals& all) {
  auto options = std::make_shared<del_options>();
  CLI::App& sub = *app.add_subcommand("del", "Delete one record");
  sub.add_option(
         "TYPE", options->type,
         "Record type: trg, prm, thw, sht, tg, dtg, apr, usr, cat, prd, fst, cms, scn, rqr, rqf, fan, "
         "rqd, rqt, rqv, coo")
      ->required();
  sub.add_option(
      "KEY", options->keys,
      "NAME of the target, group, profile or connection; USER; FILE; FILE PRODUCT; FILE PRODUCT FILESET; "
      "TARGET FILE; REQUEST; REQUEST RGN REN; REQUEST DOMAIN; REQUEST DOMAIN TARGET");
  sub.add_flag("--force", options->force, "Delete even the local target");
  sub.footer(R"(A target takes its parameters, its hardware record and its CM status with it; its shadow
record stays and passes to the next target that gets its number. A change file takes its
products and filesets with it; while any target has CM status of it, it is refused with
8212: 'zvradm cms del-file' first. The filesets of a product stay when the product goes.
A user's last_seqno is kept for the next user of that name.

A function takes its correlator with it; a whole request goes by 'zvradm request-tree del'.

Examples:
  zvradm del trg BERGEN
  zvradm del thw BERGEN
  zvradm del cat 'DEB.libc6.FIX.2\.36'
  zvradm del prd 'DEB.libc6.FIX.2\.36' 7)");
  sub.callback([&all, options] { del_one(all, *options); });
}

}  // namespace zvradm
