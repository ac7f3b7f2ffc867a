#include <cstdio>
#include <exception>

#include "cms_commands.h"
#include "commands.h"
#include "request_commands.h"

namespace zvradm {

namespace {

constexpr const char* examples = R"(Exit codes:
  0  done
  1  refused, or not all of it done; standard error tells why, and what the library
     answered by name and number
  2  wrong usage, or a file that 'file check' cannot read

Examples:
  zvradm --base /srv/zvr init --name OSLO --rgn NORTH --ren OSLO01 --kind server
  zvradm --base /srv/zvr put trg targets.jsonl
  zvradm --base /srv/zvr list trg --server OSLO --table
  zvradm file check --deep /srv/zvr/db/*

'zvradm COMMAND --help' tells about one command.)";

constexpr const char* cms_examples = R"(Examples:
  zvradm cms put OSLO 'DEB.libc6.FIX.2\.36' 5
  zvradm cms by-file 'DEB.libc6.FIX.2\.36' --table
  zvradm cms import status.jsonl

'zvradm cms COMMAND --help' tells about one command.)";

constexpr const char* file_examples = R"(Examples:
  zvradm file check --deep /srv/zvr/db/*
  zvradm file summary --table /srv/zvr/db/catalog

'zvradm file COMMAND --help' tells about one command.)";

// The word that is no command where one is required; empty when nothing was given.
std::string unknown_word(const CLI::App& app) {
  const std::vector<std::string> left = app.remaining(true);
  return left.empty() ? "" : left.front();
}

// The command whose help tells more: as far down as commands were given.
std::string help_of(const CLI::App& app) {
  std::string words = "zvradm";
  for (const CLI::App* at = &app; !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    words += " " + at->get_name();
  }
  return "'" + words + " --help'";
}

// Text on standard error, one line a message, with the tool's name before it.
void complain(const std::string& text) {
  std::fflush(stdout);
  std::fprintf(stderr, "zvradm: %s\n", text.c_str());
}

}  // namespace

int run_command_line(int argc, const char* const* argv) {
  globals all;
  CLI::App app{"Administration of a zvrdb installation."};
  app.name("zvradm");
  app.footer(examples);
  app.fallthrough();
  app.require_subcommand(1);
  app.set_help_all_flag("--help-all", "Help of all commands");
  app.set_version_flag("--version", "zvradm " ZVRDB_VERSION);
  app.add_option("--base", all.base, "Base directory of the installation")
      ->type_name("DIR")
      ->envname("ORVO_PATH");
  add_init(app, all);
  add_status(app, all);
  add_reset(app, all);
  add_put(app, all);
  add_get(app, all);
  add_del(app, all);
  add_list(app, all);
  add_rename_target(app, all);
  add_target_status(app, all);
  add_target_by_rr(app, all);
  add_server_of(app, all);
  add_auth(app, all);
  add_request_tree(app, all);
  add_last_request(app, all);
  add_correlator_of(app, all);
  add_request_of(app, all);
  add_import(app, all);
  add_export(app, all);
  add_migrate(app, all);
  add_matrix(app, all);
  add_edit(app, all);
  add_check_config(app, all);
  add_trace(app, all);
  add_journal(app, all);
  CLI::App& cms = *app.add_subcommand("cms", "CM status: the state of change files on targets");
  cms.require_subcommand(1);
  cms.footer(cms_examples);
  add_cms_pair(cms, all);
  add_cms_lists(cms, all);
  add_cms_import(cms, all);
  CLI::App& file = *app.add_subcommand("file", "Check, dump and sum up record files");
  file.require_subcommand(1);
  file.footer(file_examples);
  add_file_check(file, all);
  add_file_dump(file, all);
  add_file_summary(file, all);
  add_file_hold(file, all);

  try {
    app.parse(argc, argv);
  } catch (const CLI::RequiredError& fault) {
    const std::string word = unknown_word(app);
    if (word.empty())
      complain(std::string(fault.what()) + "; " + help_of(app) + " tells more");
    else
      complain("there is no command or option '" + word + "' here; " + help_of(app) + " tells which there are");
    return exit_usage;
  } catch (const CLI::ParseError& fault) {
    if (fault.get_exit_code() == 0) {   // help, or the version
      app.exit(fault);
      return exit_done;
    }
    complain(std::string(fault.what()) + "; " + help_of(app) + " tells more");
    return exit_usage;
  } catch (const usage_fault& fault) {
    complain(fault.what());
    return exit_usage;
  } catch (const refusal& fault) {
    complain(fault.what());
    return exit_refused;
  } catch (const std::exception& fault) {
    complain(fault.what());
    return exit_refused;
  }
  if (std::fflush(stdout) != 0) {
    complain("standard output cannot be written");
    return exit_refused;
  }
  return all.answer;
}

}  // namespace zvradm
