// del TYPE KEY...: deletes one record.
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <memory>

#include "commands.h"
#include "local_target.h"
#include "record_keys.h"
#include "session.h"

namespace zvradm {

namespace {

struct del_options {
  std::string type;
  std::vector<std::string> keys;
  bool force = false;
};

void del_one(const globals& all, const del_options& options) {
  const record_type& type = record_type_named(options.type);
  const record_keys keys(type, options.keys);
  const session s(base_directory(all));
  if (type.db_id == DB_TRG && options.keys[0] == local_target_name(s.task()) && !options.force)
    throw refusal("del trg \"" + options.keys[0] +
                  "\": this is the local target; without it the installation cannot build its tables. "
                  "Nothing was deleted; --force deletes it all the same");
  require_ok(call_text("del", type, options.keys), db_del(s.task(), type.db_id, keys.count(), keys.data()));
}

}  // namespace

void add_del(CLI::App& app, globals& all) {
  auto options = std::make_shared<del_options>();
  CLI::App& sub = *app.add_subcommand("del", "Delete one record");
  sub.add_option("TYPE", options->type, "Record type: trg, prm, thw, sht")->required();
  sub.add_option("KEY", options->keys, "NAME of the target");
  sub.add_flag("--force", options->force, "Delete even the local target");
  sub.footer(R"(A target takes its parameters and its hardware record with it; its shadow record
stays and passes to the next target that gets its number.

Examples:
  zvradm del trg BERGEN
  zvradm del thw BERGEN)");
  sub.callback([&all, options] { del_one(all, *options); });
}

}  // namespace zvradm
