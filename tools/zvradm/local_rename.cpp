#include "local_rename.h"

#include <zvrdb/zvrdb.h>

#include <cstdio>

#include "config_file.h"
#include "local_target.h"
#include "refusals.h"

namespace zvradm {

namespace {

// Changes kind and name in the configuration that the running tasks share, and leaves
// all else in it as it is.
void set_live_config(void* task, const std::string& name, std::uint8_t kind) {
  build_shared_tables(task);
  config_record live{};
  require_ok("get cfg",
             db_get(task, DB_CFG, 0, nullptr, live.data(), static_cast<std::uint16_t>(live.size())));
  live[config_kind_at] = kind;
  set_config_name(live, name);
  const std::int16_t code =
      db_put(task, DB_CFG, 0, nullptr, live.data(), static_cast<std::uint16_t>(live.size()));
  if (!is_stored(code)) throw library_refusal("put cfg", code);
}

void set_local_name(void* task, const std::string& name) {
  const std::uint16_t code = co_set_target(task, name.c_str());
  if (code != CO_OK)
    throw refusal("the local name cannot be set: code " + std::to_string(code) +
                  "; end all tasks and run 'zvradm reset'");
}

// Record and file have the new name: the shared state follows.
void finish(void* task, const std::string& base, const config_record& wanted) {
  publish_pending(base);
  set_local_name(task, config_name(wanted));
  set_live_config(task, config_name(wanted), wanted[config_kind_at]);
}

void undo(void* task, const std::string& base, const config_record& wanted, const std::string& old_name) {
  config_record former = wanted;
  set_config_name(former, old_name);
  write_config(task, config_path(base), former);
  remove_pending(base);
  set_local_name(task, old_name);
  set_live_config(task, old_name, former[config_kind_at]);
}

}  // namespace

void rename_local_target(void* task, const std::string& base, const std::string& old_name,
                         const std::string& new_name) {
  require_config_text("NEW, as the name of the local target,", new_name,
                      sizeof(db_cfg::workstation_name) - 1);
  const config_lock lock(base);
  lock.require();
  config_record wanted{};
  if (!read_config(config_path(base), wanted)) throw refusal(config_path(base) + " is missing");
  config_record interim = interim_config(wanted);
  set_config_name(interim, old_name);
  set_config_name(wanted, new_name);
  write_config(task, pending_path(base), wanted);
  write_config(task, config_path(base), interim);
  set_live_config(task, old_name, kind_server_no_comms);
  const std::int16_t code = db_rename_trg(task, old_name.c_str(), new_name.c_str());
  if (code != DBE_OK) {
    undo(task, base, wanted, old_name);
    throw library_refusal("rename-target \"" + old_name + "\" \"" + new_name + "\"", code);
  }
  finish(task, base, wanted);
}

void settle_interrupted_rename(void* task, const std::string& base) {
  config_record wanted{}, present{};
  if (!read_config(pending_path(base), wanted)) return;
  const config_lock lock(base);
  if (!lock.taken()) return;  // the change is under way, not interrupted
  if (!read_config(pending_path(base), wanted) || !read_config(config_path(base), present)) return;
  if (config_name(wanted) == config_name(present))
    throw refusal(base + ": an init was interrupted; repeat it with the same values");
  std::uint32_t number = 0;
  const bool renamed = db_get_trg_index(task, config_name(wanted).c_str(), &number) == DBE_OK;
  if (renamed)
    finish(task, base, wanted);
  else
    undo(task, base, wanted, config_name(present));
  std::fprintf(stderr, "zvradm: an interrupted rename of the local target was %s; it is %s\n",
               renamed ? "carried through" : "undone",
               (renamed ? config_name(wanted) : config_name(present)).c_str());
}

}  // namespace zvradm
