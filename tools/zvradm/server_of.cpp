// server-of NAME: the server of a target.
#include <zvrdb/zvrdb.h>

#include <cstring>
#include <memory>

#include "commands.h"
#include "json_output.h"
#include "session.h"

namespace zvradm {

void add_server_of(CLI::App& app, globals& all) {
  auto name = std::make_shared<std::string>();
  CLI::App& sub = *app.add_subcommand("server-of", "Print the name of a target's server");
  sub.add_option("NAME", *name, "Target")->required();
  sub.footer(R"(A target without a server is its own.

Example:
  zvradm server-of BERGEN)");
  sub.callback([&all, name] {
    const session s(base_directory(all));
    char server[65] = {};
    require_ok("server-of \"" + *name + "\"", db_get_srv(s.task(), name->c_str(), server));
    print_json({{"trg_name", *name}, {"srv_name", std::string(server, strnlen(server, 64))}});
  });
}

}  // namespace zvradm
