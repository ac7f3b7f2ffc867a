#include <zvrco/zvrco.h>

#include <cstdlib>
#include <cstring>

#include "tasklaunch/launch.h"

namespace zvrdb::tasklaunch {
namespace {

constexpr std::uint32_t program_component = 0;
constexpr std::uint32_t main_task = 1;
constexpr std::uint32_t not_found = 35854;
constexpr std::uint32_t not_started = 35844;
constexpr const char* command_line_program = "orvo";

// Runs at exit() as long as the start-up has not been come through.
zvr_end_hook end_hook = nullptr;

void run_end_hook() {
  if (end_hook) end_hook();
}

char lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// The task block of the program, with everything that comes before its body.
void* start_up(const zvr_program& program, const zvr_task_row& row, const char* name) {
  // Other programs of the product may end this one: the system's own rules (same user)
  // say who may, and there is nothing to be opened here.
  end_hook = row.end_hook;
  std::atexit(run_end_hook);
  void* task = co_init_task(name, nullptr, main_task);
  if (!task) {
    co_init_log(not_started, "%s: %s\n", name, co_init_error());
    std::exit(ZVR_EXIT_NOT_STARTED);
  }
  co_reg_version(task, program_component, program.build_date, program.build_time);
  end_hook = nullptr;
  co_read_hw_filter(task);
  return task;
}

}  // namespace

void program_name(const char* path, char (&name)[ZVR_TASK_NAME]) {
  std::memset(name, 0, sizeof name);
  if (!path) return;
  const char* stem = path;
  for (const char* position = path; *position != 0; ++position)
    if (*position == '\\' || *position == '/') stem = position + 1;
  for (std::size_t i = 0; i + 1 < sizeof name && stem[i] != 0 && stem[i] != '.'; ++i) name[i] = lower(stem[i]);
}

void run_program(const zvr_program& program, int argument_count, char** arguments) {
  char name[ZVR_TASK_NAME];
  program_name(argument_count > 0 && arguments ? arguments[0] : nullptr, name);
  const bool command_line = std::strcmp(name, command_line_program) == 0 && program.command_line_title;
  co_set_title(nullptr, command_line ? program.command_line_title : name);
  const int row = find_task(program, name);
  if (row < 0) {
    co_init_log(not_found, "ZVRCO014E: Task %s not found.\n", name);
    std::exit(ZVR_EXIT_NOT_STARTED);
  }
  void* task = start_up(program, program.tasks[row], name);
  std::exit(call_task(program, task, static_cast<std::uint16_t>(row), argument_count, arguments));
}

std::uint16_t call_task(const zvr_program& program, void* task, std::uint16_t task_index, int argument_count,
                        char** arguments) {
  if (!program.tasks) return ZVR_TASK_UNKNOWN;
  int row = 0;
  while (row < task_index && program.tasks[row].name[0] != 0) ++row;
  const zvr_task_row& called = program.tasks[row];
  if (called.name[0] == 0 || !called.entry) return ZVR_TASK_UNKNOWN;
  const std::uint16_t result = called.entry(task, called.name, argument_count, arguments);
  if (co_task_slots* slots = co_slots(task)) slots->task_rc = result;
  return result;
}

}  // namespace zvrdb::tasklaunch
