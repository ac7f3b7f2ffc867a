// trace on|off: the live trace word of the installation.
#include <zvrco/zvrco.h>

#include "commands.h"
#include "session.h"

namespace zvradm {

namespace {

// Levels 0 to 5 of the contents, and the entry and exit of every function.
constexpr std::uint32_t everything = 0x3Fu | (1u << 8);

void set_trace(const globals& all, std::uint32_t word) {
  const session s(base_directory(all));
  const std::uint16_t code = co_set_trace(s.task(), word);
  if (code != CO_OK) throw refusal("trace: the trace word cannot be set: code " + std::to_string(code));
}

}  // namespace

void add_trace(CLI::App& app, globals& all) {
  CLI::App& sub =
      *app.add_subcommand("trace", "Switch the trace of all processes of the installation on and off");
  sub.require_subcommand(1);
  sub.footer(R"(Trace lines go to log/trace.log of the installation.

Examples:
  zvradm trace on
  zvradm trace off)");
  sub.add_subcommand("on", "Trace everything")->callback([&all] { set_trace(all, everything); });
  sub.add_subcommand("off", "Trace nothing")->callback([&all] { set_trace(all, 0); });
}

}  // namespace zvradm
