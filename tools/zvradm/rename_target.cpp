// rename-target OLD NEW: gives a target another name; its number stays.
#include <zvrdb/zvrdb.h>

#include <memory>

#include "commands.h"
#include "local_rename.h"
#include "local_target.h"
#include "session.h"

namespace zvradm {

namespace {

constexpr std::size_t longest_name = 63;

struct rename_options {
  std::string old_name, new_name;
};

void rename_target(const globals& all, const rename_options& options) {
  if (options.new_name.empty() || options.new_name.size() > longest_name)
    throw usage_fault("NEW must have 1 to " + std::to_string(longest_name) + " bytes");
  const std::string base = base_directory(all);
  const session s(base);
  const std::string what = "rename-target \"" + options.old_name + "\" \"" + options.new_name + "\"";
  settle_interrupted_rename(s.task(), base);
  std::uint32_t number = 0;
  // An unknown name is left to the rename itself, which tells so.
  const bool known = db_get_trg_index(s.task(), options.old_name.c_str(), &number) == DBE_OK;
  if (known && options.old_name == options.new_name) return;
  if (known && db_get_trg_index(s.task(), options.new_name.c_str(), &number) == DBE_OK)
    throw refusal(what + ": a target of the new name exists already; nothing was changed");
  if (known && options.old_name == local_target_name(s.task()))
    rename_local_target(s.task(), base, options.old_name, options.new_name);
  else
    require_ok(what, db_rename_trg(s.task(), options.old_name.c_str(), options.new_name.c_str()));
}

}  // namespace

void add_rename_target(CLI::App& app, globals& all) {
  auto options = std::make_shared<rename_options>();
  CLI::App& sub = *app.add_subcommand("rename-target", "Give a target another name");
  sub.add_option("OLD", options->old_name, "Present name")->required();
  sub.add_option("NEW", options->new_name, "New name")->required();
  sub.footer(R"(Number, status and the links of clients stay. Renaming the local target changes the
workstation name in orvo.cfg and the local name too.

Example:
  zvradm rename-target OSLO OSLO-NORTH)");
  sub.callback([&all, options] { rename_target(all, *options); });
}

}  // namespace zvradm
