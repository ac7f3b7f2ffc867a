// init: makes an installation.
#include <array>
#include <cstdio>
#include <memory>

#include "commands.h"
#include "config_file.h"
#include "installation.h"
#include "record_fields.h"
#include "record_json.h"
#include "session.h"

namespace zvradm {

namespace {

struct kind_word {
  const char* text;
  std::uint8_t kind;
};
constexpr std::array kind_words{kind_word{"client", kind_client},
                                kind_word{"base", kind_base},
                                kind_word{"server", kind_server},
                                kind_word{"server-no-comms", kind_server_no_comms},
                                kind_word{"remote-admin-server", kind_remote_admin_server},
                                kind_word{"remote-admin-base", kind_remote_admin_base}};

struct init_options {
  installation_values values;
  std::string kind, system;
  std::uint32_t max_targets = 0, max_local = 0, max_server = 0;
};

std::uint8_t kind_named(const std::string& text) {
  std::string known;
  for (const kind_word& k : kind_words) {
    if (text == k.text) return k.kind;
    known += (known.empty() ? "" : ", ") + std::string(k.text);
  }
  throw usage_fault("--kind: unknown kind '" + text + "'; there are " + known);
}

std::uint8_t system_named(const std::string& text) {
  for (const word& w : target_systems())
    if (text == w.text) return static_cast<std::uint8_t>(w.value);
  const std::uint32_t number = parse_bits("--os", text, target_systems());
  if (number > 255) throw usage_fault("--os must be a word or a number from 0 to 255");
  return static_cast<std::uint8_t>(number);
}

void init(globals& all, init_options& options) {
  require_config_text("--name", options.values.name, 63);
  require_config_text("--rgn", options.values.rgn, 8);
  require_config_text("--ren", options.values.ren, 8);
  if (!options.kind.empty()) options.values.kind = kind_named(options.kind);
  if (!options.system.empty()) options.values.system = system_named(options.system);
  const std::string base = base_directory(all);
  const making result = make_installation(base, options.values);
  const char* word = result == making::made ? "made" : result == making::changed ? "changed" : "unchanged";
  std::printf("%s: installation %s, local target %s\n", base.c_str(), word, options.values.name.c_str());
}

}  // namespace

void add_init(CLI::App& app, globals& all) {
  auto options = std::make_shared<init_options>();
  CLI::App& sub = *app.add_subcommand("init", "Make an installation");
  sub.add_option("--name", options->values.name, "Name of the local target")->required();
  sub.add_option("--rgn", options->values.rgn, "Network part of its network name, at most 8 characters")
      ->required();
  sub.add_option("--ren", options->values.ren, "Element part of its network name, at most 8 characters")
      ->required();
  sub.add_option("--kind", options->kind,
                 "base, server, server-no-comms, remote-admin-base, remote-admin-server or client (server)");
  sub.add_option("--os", options->system, "System of this machine, a word of trg_os (OS_UNKNOWN)");
  const auto limit = CLI::Range(1u, 16000000u);
  CLI::Option* most =
      sub.add_option("--max-targets", options->max_targets, "Most targets (10000)")->check(limit);
  CLI::Option* local =
      sub.add_option("--max-local-targets", options->max_local, "Most local targets (all)")->check(limit);
  CLI::Option* server =
      sub.add_option("--max-server-targets", options->max_server, "Most server targets (all)")->check(limit);
  sub.add_flag("--force", options->values.force, "Change an installation that has other values");
  sub.footer(R"(Makes the base directory with orvo.cfg, db, log and messages, and the record of the
local target. A second init with the same values changes nothing; one that was
interrupted is repeated as it was given.

Example:
  zvradm --base /srv/zvr init --name OSLO --rgn NORTH --ren OSLO01 --kind server)");
  sub.callback([&all, options, most, local, server] {
    if (most->count() > 0) options->values.max_targets = options->max_targets;
    if (local->count() > 0) options->values.max_local_targets = options->max_local;
    if (server->count() > 0) options->values.max_server_targets = options->max_server;
    init(all, *options);
  });
}

}  // namespace zvradm
