#include "installation.h"

#include <fcntl.h>
#include <unistd.h>
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "ownership.h"
#include "record_fields.h"
#include "record_json.h"
#include "record_keys.h"
#include "session.h"
#include "shared_state.h"

namespace zvradm {

void (*after_making_step)(int step) = nullptr;

namespace {

constexpr std::uint32_t default_max_targets = 10000;
constexpr std::uint8_t push_mode = 2;  // of the configuration
constexpr std::size_t dsu_part = sizeof(db_trg::rgn);
constexpr std::size_t path_width = sizeof(db_cfg::file_path);

// Target record fields.
constexpr std::size_t rgn_at = offsetof(db_trg, rgn), ren_at = offsetof(db_trg, ren),
                      type_at = offsetof(db_trg, trg_type), system_at = offsetof(db_trg, trg_os),
                      mode_at = offsetof(db_trg, trg_mode);

void told(int step) {
  if (after_making_step) after_making_step(step);
}

std::uint32_t number_at(const config_record& record, std::size_t at) {
  return load_number(record.data() + at, 4);
}
void set_number(config_record& record, std::size_t at, std::uint32_t value) {
  store_number(record.data() + at, 4, value);
}

std::string kind_name(std::uint8_t kind) {
  for (const word& w : installation_kinds())
    if (w.value == kind) return w.text;
  return std::to_string(kind);
}

config_record fresh_config(const std::string& base, const installation_values& values) {
  config_record record{};
  const std::string path = std::filesystem::absolute(base).lexically_normal().string();
  if (path.size() >= path_width)
    throw refusal(base + ": the path is longer than " + std::to_string(path_width - 1) + " bytes");
  std::copy(path.begin(), path.end(), record.begin() + config_path_at);
  record[config_machine_at] = values.system.value_or(DB_OS_UNKNOWN);
  record[config_kind_at] = values.kind.value_or(kind_server);
  record[config_mode_at] = push_mode;
  set_config_name(record, values.name);
  const std::uint32_t most = values.max_targets.value_or(default_max_targets);
  set_number(record, config_max_targets_at, most);
  set_number(record, config_max_local_at, values.max_local_targets.value_or(most));
  set_number(record, config_max_server_at, values.max_server_targets.value_or(most));
  return record;
}

// Puts the values that were given into a configuration that stands already; tells
// those that differ, one a line.
std::string apply_values(config_record& record, const installation_values& values) {
  std::string differences;
  const auto differ = [&](const char* what, const std::string& is, const std::string& asked) {
    differences += std::string("\n  ") + what + " is " + is + ", asked for is " + asked;
  };
  if (config_name(record) != values.name) {
    differ("name", config_name(record), values.name);
    set_config_name(record, values.name);
  }
  if (values.kind && record[config_kind_at] != *values.kind) {
    differ("kind", kind_name(record[config_kind_at]), kind_name(*values.kind));
    record[config_kind_at] = *values.kind;
  }
  const auto number = [&](const char* what, std::size_t at, const std::optional<std::uint32_t>& asked) {
    if (!asked || number_at(record, at) == *asked) return;
    differ(what, std::to_string(number_at(record, at)), std::to_string(*asked));
    set_number(record, at, *asked);
  };
  number("max-targets", config_max_targets_at, values.max_targets);
  number("max-local-targets", config_max_local_at, values.max_local_targets);
  number("max-server-targets", config_max_server_at, values.max_server_targets);
  if (values.system && record[config_machine_at] != *values.system) {
    differ("os", std::to_string(record[config_machine_at]), std::to_string(*values.system));
    record[config_machine_at] = *values.system;
  }
  return differences;
}

struct close_at_end {
  int descriptor;
  ~close_at_end() { close(descriptor); }
};

void make_folders(const std::string& base) {
  for (const char* name : {"", "db", "log", "messages"}) {
    const std::filesystem::path folder = std::filesystem::path(base) / name;
    std::error_code fault;
    const bool made = std::filesystem::create_directories(folder, fault);
    if (fault) throw refusal(folder.string() + ": cannot be made: " + fault.message());
    if (!made || *name == '\0') continue;
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0) throw refusal(folder.string() + ": cannot be opened: " + std::strerror(errno));
    const close_at_end guard{descriptor};
    give_to_owner_of(base, descriptor);
  }
}

void set_dsu_part(unsigned char* at, const std::string& text) {
  std::fill_n(at, dsu_part, static_cast<unsigned char>(0));
  std::copy_n(text.begin(), std::min(text.size(), dsu_part), at);
}

std::string dsu_part_of(const unsigned char* at) {
  return {at, std::find(at, at + dsu_part, 0)};
}

bool read_target(void* task, const std::string& name, std::vector<unsigned char>& record) {
  const record_type& type = record_type_named("trg");
  const record_keys keys(type, {name});
  record.assign(type.get_length, 0);
  const std::int16_t code =
      db_get(task, type.db_id, keys.count(), keys.data(), record.data(), type.get_length);
  if (code == DBE_NOT_FOUND) return false;
  require_ok("get trg \"" + name + "\"", code);
  return true;
}

// With the interim configuration standing: the local target's record as wanted.
void store_local_target(void* task, const config_record& wanted, const std::string& former_name,
                        const installation_values& values) {
  const std::string name = config_name(wanted);
  std::vector<unsigned char> record;
  bool there = read_target(task, name, record);
  if (!there && former_name != name && read_target(task, former_name, record)) {
    require_ok("rename-target \"" + former_name + "\" \"" + name + "\"",
               db_rename_trg(task, former_name.c_str(), name.c_str()));
    there = read_target(task, name, record);
  }
  std::vector<unsigned char> stored = record;
  if (!there) {
    std::copy(name.begin(), name.end(), record.begin());
    record[system_at] = wanted[config_machine_at];
    record[mode_at] = DB_MODE_NONE;
  }
  if (values.system) record[system_at] = *values.system;
  set_dsu_part(record.data() + rgn_at, values.rgn);
  set_dsu_part(record.data() + ren_at, values.ren);
  record[type_at] = local_target_type(wanted[config_kind_at]);
  // A store of a server counts it once more, so nothing is stored that is there.
  if (there && stored == record) return;
  const record_type& type = record_type_named("trg");
  const record_keys keys(type, {name});
  const std::int16_t code =
      db_put(task, type.db_id, keys.count(), keys.data(), record.data(), type.put_length);
  if (!is_stored(code)) throw library_refusal("put trg \"" + name + "\"", code);
}

// Whether the local target of a finished installation is in place; tells what differs.
bool local_target_stands(void* task, const config_record& config, const installation_values& values,
                         std::string& differences) {
  const record_type& type = record_type_named("trg");
  const record_keys keys(type, {config_name(config)});
  std::vector<unsigned char> record(type.list_length);
  const std::int16_t code =
      db_get(task, type.db_id, keys.count(), keys.data(), record.data(), type.list_length);
  if (code == DBE_NOT_FOUND || code == DBE_INIT_FAILED) return false;
  require_ok("get trg \"" + config_name(config) + "\"", code);
  const std::string ren = dsu_part_of(record.data() + ren_at), rgn = dsu_part_of(record.data() + rgn_at);
  if (ren != values.ren) differences += "\n  ren is " + ren + ", asked for is " + values.ren;
  // With communications the library answers the local network's name as rgn.
  if (config[config_kind_at] == kind_server_no_comms && rgn != values.rgn)
    differences += "\n  rgn is " + rgn + ", asked for is " + values.rgn;
  return true;
}

}  // namespace

std::uint8_t local_target_type(std::uint8_t kind) {
  if (kind == kind_client) return DB_TRG_LOCAL | DB_TRG_CLIENT;
  if (kind == kind_base || kind == kind_remote_admin_base) return DB_TRG_LOCAL | DB_TRG_BASE;
  return DB_TRG_LOCAL | DB_TRG_SERVER;
}

making make_installation(const std::string& base, const installation_values& values) {
  config_record present{}, wanted{};
  const bool was_there = read_config(config_path(base), present);
  if (!was_there) (void)fresh_config(base, values);  // its faults come before anything is made
  make_folders(base);
  const config_lock lock(base);
  lock.require();
  told(step_folders);
  const bool pending = read_config(pending_path(base), wanted);
  const bool there = read_config(config_path(base), present);
  std::string differences;
  if (!pending) wanted = there ? present : fresh_config(base, values);
  if (pending || there) {
    differences = apply_values(wanted, values);
    if (!pending && differences.empty()) {
      const session s(base);
      if (local_target_stands(s.task(), wanted, values, differences) && differences.empty())
        return making::unchanged;
    }
    if (!differences.empty() && !values.force)
      throw refusal(base + ": there is an installation" + (pending ? ", not finished," : "") +
                    " with other values; nothing was changed:" + differences +
                    "\ngive --force to change them, or the values that stand");
  }
  drop_shared_state(base);
  announce_base(base);
  write_config(nullptr, pending_path(base), wanted);
  told(step_pending_written);
  // The interim keeps the former name: a repetition must know which record to rename.
  const std::string former_name = there ? config_name(present) : config_name(wanted);
  config_record interim = interim_config(wanted);
  set_config_name(interim, former_name);
  write_config(nullptr, config_path(base), interim);
  told(step_interim_written);
  {
    const session s(base);
    store_local_target(s.task(), wanted, former_name, values);
  }
  told(step_record_stored);
  // The next task shall build the shared state with the kind that is wanted.
  drop_shared_state(base);
  told(step_state_dropped);
  publish_pending(base);
  told(step_published);
  return was_there ? making::changed : making::made;
}

}  // namespace zvradm
