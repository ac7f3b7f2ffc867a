// reset: drops the shared state of an installation that nobody uses.
#include <zvrco/zvrco.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>

#include "commands.h"
#include "session.h"
#include "shared_state.h"

namespace zvradm {

void drop_shared_state(const std::string& base) {
  std::array<co_task_info, 16> tasks{};
  std::uint32_t alive = 0;
  const std::uint16_t code =
      co_reset(base.c_str(), tasks.data(), static_cast<std::uint32_t>(tasks.size()), &alive);
  if (code == CO_OK) return;
  if (alive == 0) {
    const char* reason = co_init_error();
    throw refusal(base + ": the shared state cannot be dropped: " +
                  (reason && *reason ? reason : "code " + std::to_string(code)));
  }
  std::string text = base + ": " + std::to_string(alive) + " task" + (alive == 1 ? " is" : "s are") +
                     " alive; end them first:";
  const std::size_t told = std::min<std::size_t>(alive, tasks.size());
  for (std::size_t i = 0; i < told; ++i)
    text += "\n  place " + std::to_string(tasks[i].place) + ", process " + std::to_string(tasks[i].process) +
            ", " + tasks[i].name;
  if (told < alive) text += "\n  and others";
  throw refusal(text);
}

void add_reset(CLI::App& app, globals& all) {
  CLI::App& sub = *app.add_subcommand("reset", "Drop the shared state if no task is alive");
  sub.footer(R"(The next call builds the shared state anew from the record files. The volatile status
of targets and changes of the base configuration that were made in memory are lost.

Example:
  zvradm --base /srv/zvr reset)");
  sub.callback([&all] {
    const std::string base = base_directory(all);
    drop_shared_state(base);
    std::error_code ignored;
    if (!std::filesystem::exists(base + "/orvo.cfg", ignored))
      std::fprintf(stderr, "zvradm: %s: note: there is no installation here (orvo.cfg is missing)\n", base.c_str());
  });
}

}  // namespace zvradm
