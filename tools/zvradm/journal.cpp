// journal [on|off]: whether record files are opened with a commit journal.
#include <zvrco/zvrco.h>

#include <cstdio>
#include <memory>

#include "commands.h"
#include "config_file.h"
#include "journal_setting.h"
#include "json_output.h"
#include "session.h"

namespace zvradm {

namespace {

struct journal_options {
  std::string choice;  // empty: show
  bool as_json = false;
};

std::uint32_t other_tasks(void* task) {
  const std::uint32_t alive = co_live_tasks(task, nullptr, 0);
  return alive > 0 ? alive - 1 : 0;  // without this command
}

void show(void* task, bool as_json) {
  const journal_view view = view_journal(task);
  if (as_json) {
    print_json({{"journal", view.on}, {"source", view.source}, {"note", view.note}});
    return;
  }
  std::printf("%s\n", journal_text(view).c_str());
}

void set(void* task, const std::string& base, const std::string& choice) {
  write_config_text(base + "/" + zvrdb::recfile::journal_choice_file,
                    "# Commit journals of the record files: on or off.  See zvradm journal --help.\n" + choice + "\n");
  const journal_view view = view_journal(task);
  std::printf("%s\n", journal_text(view).c_str());
  if (view.on != (choice == "on"))
    std::fprintf(stderr, "zvradm: ZVR_JOURNAL in this environment says otherwise\n");
  if (const std::uint32_t tasks = other_tasks(task))
    std::printf("%u task%s alive: a record file goes on as it is until the last of them has closed it\n", tasks,
                tasks == 1 ? " is" : "s are");
}

void run(const globals& all, const journal_options& options) {
  const std::string base = base_directory(all);
  const session s(base);
  if (options.choice.empty())
    show(s.task(), options.as_json);
  else
    set(s.task(), base, options.choice);
}

}  // namespace

void add_journal(CLI::App& app, globals& all) {
  auto options = std::make_shared<journal_options>();
  CLI::App& sub = *app.add_subcommand("journal", "Show or set whether record files have commit journals");
  sub.add_option("CHOICE", options->choice, "on or off; without it the choice is shown")
      ->check(CLI::IsMember({"on", "off"}));
  sub.add_flag("--json", options->as_json, "One JSON line, for machines");
  sub.footer(R"(With journals, as an installation is made, a call that writes is flushed once and is whole
or absent after any crash. Without, each write operation goes into the record file in the
order that every program of the format knows, with many flushes.

The choice stands in the file "journal" of the base directory; the environment variable
ZVR_JOURNAL, on or off, goes before it in a process. It may be set at any time: who opens
a record file beside others does as they do, so it changes over when nobody has it open.

Examples:
  zvradm journal
  zvradm journal off)");
  sub.callback([&all, options] { run(all, *options); });
}

}  // namespace zvradm
