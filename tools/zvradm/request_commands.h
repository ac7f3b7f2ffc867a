// The subcommands on requests and correlators.
#pragma once

#include "commands.h"

namespace zvradm {

void add_request_tree(CLI::App& app, globals& all);
void add_last_request(CLI::App& app, globals& all);
void add_correlator_of(CLI::App& app, globals& all);
void add_request_of(CLI::App& app, globals& all);

}  // namespace zvradm
