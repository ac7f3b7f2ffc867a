// target-status get|put|age: the volatile status of targets.
#include <zvrdb/zvrdb.h>

#include <array>
#include <cstring>
#include <memory>

#include "commands.h"
#include "json_output.h"
#include "session.h"

namespace zvradm {

namespace {

using status_bytes = std::array<unsigned char, 4>;

struct status_options {
  std::string name;
  std::string status;
  std::uint16_t elapsed = 0;
};

// Reading takes the targets' semaphore, writing gives it back: the two belong
// together, so a plain read writes back what it read.
status_bytes exchange_status(void* task, const std::string& name, const status_bytes* wanted) {
  status_bytes read{};
  require_ok("target-status \"" + name + "\"", db_get_trg_stat(task, name.c_str(), read.data()));
  const status_bytes& written = wanted ? *wanted : read;
  require_ok("target-status \"" + name + "\"", db_put_trg_stat(task, name.c_str(), written.data()));
  return read;
}

void get_status(const globals& all, const status_options& options) {
  const session s(base_directory(all));
  const status_bytes read = exchange_status(s.task(), options.name, nullptr);
  print_json(
      {{"trg_name", options.name}, {"trg_status", to_hex(read)}, {"counter", load_number(read.data(), 2)}});
}

void put_status(const globals& all, const status_options& options) {
  std::vector<unsigned char> bytes;
  if (!from_hex(options.status, bytes) || bytes.size() != 4)
    throw usage_fault("STATUS is 4 bytes as 8 hexadecimal digits, e.g. 3c000000");
  status_bytes wanted{};
  std::copy(bytes.begin(), bytes.end(), wanted.begin());
  const session s(base_directory(all));
  exchange_status(s.task(), options.name, &wanted);
}

void age_status(const globals& all, const status_options& options) {
  const session s(base_directory(all));
  require_ok("target-status age", db_time_trg_stat(s.task(), options.elapsed));
}

}  // namespace

void add_target_status(CLI::App& app, globals& all) {
  auto options = std::make_shared<status_options>();
  CLI::App& sub = *app.add_subcommand("target-status", "Read, write and age the volatile status of targets");
  sub.require_subcommand(1);
  sub.footer(R"(The status is 4 bytes, kept in memory only: a counter of 2 bytes in the byte order of
the machine, and 2 further bytes.

Examples:
  zvradm target-status get OSLO
  zvradm target-status put OSLO 3c000100
  zvradm target-status age 5)");
  CLI::App& get = *sub.add_subcommand("get", "Print a target's status");
  get.add_option("NAME", options->name, "Target")->required();
  get.callback([&all, options] { get_status(all, *options); });
  CLI::App& put = *sub.add_subcommand("put", "Write a target's status");
  put.add_option("NAME", options->name, "Target")->required();
  put.add_option("STATUS", options->status, "8 hexadecimal digits")->required();
  put.callback([&all, options] { put_status(all, *options); });
  CLI::App& age = *sub.add_subcommand("age", "Take time off the counters of all targets");
  age.add_option("ELAPSED", options->elapsed, "0 to 65535; counters up to it are cleared")->required();
  age.callback([&all, options] { age_status(all, *options); });
}

}  // namespace zvradm
