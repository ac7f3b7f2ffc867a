#include <strings.h>
#include <zvrco/zvrco.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tasklaunch/launch.h"

namespace zvrdb::tasklaunch {
namespace {

constexpr std::uint32_t cannot_start = 35844;
constexpr std::uint32_t not_known = 35854;
constexpr std::uint32_t has_been_started = 35864;
constexpr std::uint32_t started_task = 0;
constexpr const char* detached_program = "STS";

constexpr int most_arguments = 6;
constexpr std::size_t argument_area = 165;
// Where each argument stands in the area; it ends where the next one begins.
constexpr std::size_t slots[most_arguments + 1] = {0, 20, 40, 105, 125, 145, argument_area};

// What a started thread is given. The thread frees it.
struct thread_arguments {
  const zvr_program* program;
  const launch_system* system;
  std::uint16_t task_index;
  char* area;
  int count;
  char* arguments[most_arguments];
};

int started = 0;

void set_started(int value) {
  __atomic_store_n(&started, value, __ATOMIC_RELEASE);
}

void release(const thread_arguments& given, thread_arguments* block) {
  const launch_system& system = *given.system;
  system.release(given.area);
  system.release(block);
}

void run_thread(void* argument) {
  auto* block = static_cast<thread_arguments*>(argument);
  thread_arguments given = *block;
  const zvr_task_row& row = given.program->tasks[given.task_index];
  void* task = co_init_task(row.name, nullptr, started_task);
  if (!task) {
    co_init_log(cannot_start, "%s: %s\n", row.name, co_init_error());
    release(given, block);
    return;
  }
  set_started(1);
  call_task(*given.program, task, given.task_index, given.count, given.arguments);
  release(given, block);
  coi_term_task(task, 0);
}

void copy_arguments(thread_arguments* block, int argument_count, char** arguments) {
  if (!arguments || argument_count < 0) argument_count = 0;
  block->count = argument_count < most_arguments ? argument_count : most_arguments;
  for (int i = 0; i < block->count; ++i) {
    if (!arguments[i]) continue;
    const std::size_t room = slots[i + 1] - slots[i];
    block->arguments[i] = block->area + slots[i];
    std::memcpy(block->arguments[i], arguments[i], strnlen(arguments[i], room - 1));
  }
}

// Null when memory is exhausted.
thread_arguments* make_arguments(const zvr_program& program, const launch_system& system, int task_index,
                                 int argument_count, char** arguments) {
  auto* block = static_cast<thread_arguments*>(system.allocate(sizeof(thread_arguments)));
  auto* area = static_cast<char*>(system.allocate(argument_area));
  if (!block || !area) {
    system.release(block);
    system.release(area);
    return nullptr;
  }
  block->program = &program;
  block->system = &system;
  block->task_index = static_cast<std::uint16_t>(task_index);
  block->area = area;
  copy_arguments(block, argument_count, arguments);
  return block;
}

std::uint16_t refuse(void* task, const char* what, int error) {
  co_log2(task, cannot_start, 0, 0, 0, "%s|%d", what, error);
  return ZVR_TASK_NOT_STARTED;
}

std::uint16_t start_thread(const zvr_program& program, const launch_system& system, void* task, int row,
                           int argument_count, char** arguments) {
  const char* name = program.tasks[row].name;
  thread_arguments* block = make_arguments(program, system, row, argument_count, arguments);
  if (!block) return refuse(task, name, ENOMEM);
  set_started(0);
  std::uint16_t rc = 0;
  const thread_arguments given = *block;
  if (const int error = system.start_thread(run_thread, block)) {
    rc = refuse(task, name, error);
    release(given, block);
  }
  co_log2(task, has_been_started, 0, 0, 0, "%s", name);
  return rc;
}

// Cuts a command line into its parts in place. At most `room` of them; false beyond.
bool cut_command_line(char* line, char** parts, std::size_t room) {
  std::size_t count = 0;
  char* out = line;
  for (const char* in = line;;) {
    while (*in == ' ' || *in == '\t') ++in;
    if (*in == 0) break;
    if (count + 1 == room) return false;
    parts[count++] = out;
    bool quoted = false;
    for (; *in != 0 && (quoted || (*in != ' ' && *in != '\t')); ++in) {
      if (*in == '"')
        quoted = !quoted;
      else
        *out++ = *in;
    }
    // `out` may stand where the blank is that ended the part.
    const bool more = *in != 0;
    *out++ = 0;
    if (!more) break;
    ++in;
  }
  parts[count] = nullptr;
  return count > 0;
}

int start_detached(const launch_system& system, const char* command_line) {
  constexpr std::size_t most_parts = 64;
  const std::size_t size = std::strlen(command_line) + 1;
  char* parts[most_parts];
  // A part never ends behind the place where it was read, so its NUL has room.
  auto* line = static_cast<char*>(system.allocate(size));
  if (!line) return ENOMEM;
  std::memcpy(line, command_line, size);
  const int error =
      cut_command_line(line, parts, most_parts) ? system.start_program(parts[0], parts, true) : E2BIG;
  system.release(line);
  return error;
}

int start_beside(const launch_system& system, const char* path, int argument_count, char** arguments) {
  const std::size_t count = arguments && argument_count > 0 ? static_cast<std::size_t>(argument_count) : 0;
  const std::size_t passed = count == 0 ? 1 : count;
  auto** parts = static_cast<char**>(system.allocate((passed + 1) * sizeof(char*)));
  if (!parts) return ENOMEM;
  parts[0] = const_cast<char*>(path);
  for (std::size_t i = 1; i < passed; ++i) parts[i] = arguments[i];
  const int error = system.start_program(path, parts, false);
  system.release(parts);
  return error;
}

std::uint16_t start_program(const launch_system& system, void* task, const zvr_load_row& row, int argument_count,
                            char** arguments) {
  const char* path = row.path ? row.path : "";
  if (arguments && argument_count > 0) arguments[0] = const_cast<char*>(path);
  const int error = strncasecmp(row.name, detached_program, sizeof row.name) == 0
                        ? start_detached(system, path)
                        : start_beside(system, path, argument_count, arguments);
  return error == 0 ? static_cast<std::uint16_t>(0) : refuse(task, path, error);
}

}  // namespace

int thread_started() {
  return __atomic_load_n(&started, __ATOMIC_ACQUIRE);
}

std::uint16_t create_task(const zvr_program& program, const launch_system& system, void* task, const char* name,
                          int argument_count, char** arguments) {
  char wanted[ZVR_TASK_NAME];
  std::snprintf(wanted, sizeof wanted, "%s", name ? name : "");
  const int load = find_load(program, wanted);
  if (load >= 0) return start_program(system, task, program.loads[load], argument_count, arguments);
  const int row = find_task(program, wanted);
  if (row >= 0) return start_thread(program, system, task, row, argument_count, arguments);
  co_log2(task, not_known, 0, 0, 0, "%s", wanted);
  return ZVR_TASK_UNKNOWN;
}

}  // namespace zvrdb::tasklaunch
