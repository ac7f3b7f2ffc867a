// The subcommands: each adds its own form to the command line and does its work in
// its callback, from a file of its own.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "refusals.h"

namespace zvradm {

// What stands before the subcommand, and what the process will answer.
struct globals {
  std::string base;  // empty: the environment variable ORVO_PATH tells it
  int answer = exit_done;
};

void add_init(CLI::App& app, globals& all);
void add_status(CLI::App& app, globals& all);
void add_reset(CLI::App& app, globals& all);
void add_put(CLI::App& app, globals& all);
void add_get(CLI::App& app, globals& all);
void add_del(CLI::App& app, globals& all);
void add_list(CLI::App& app, globals& all);
void add_rename_target(CLI::App& app, globals& all);
void add_target_status(CLI::App& app, globals& all);
void add_target_by_rr(CLI::App& app, globals& all);
void add_server_of(CLI::App& app, globals& all);
void add_auth(CLI::App& app, globals& all);
void add_import(CLI::App& app, globals& all);
void add_export(CLI::App& app, globals& all);
void add_migrate(CLI::App& app, globals& all);
void add_matrix(CLI::App& app, globals& all);
void add_edit(CLI::App& app, globals& all);
void add_check_config(CLI::App& app, globals& all);
void add_trace(CLI::App& app, globals& all);
void add_journal(CLI::App& app, globals& all);
void add_file_check(CLI::App& file, globals& all);
void add_file_dump(CLI::App& file, globals& all);
void add_file_summary(CLI::App& file, globals& all);
void add_file_hold(CLI::App& file, globals& all);

// Runs one command line; the exit code.
int run_command_line(int argc, const char* const* argv);

}  // namespace zvradm
