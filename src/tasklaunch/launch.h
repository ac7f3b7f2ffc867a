// Starting tasks: the process entry of a program and what a task starts further. Nothing
// here uses the C++ run-time library, so that programs in C can link it.
#pragma once

#include <sys/types.h>
#include <zvrtask/zvrtask.h>

#include <cstddef>
#include <cstdint>

namespace zvrdb::tasklaunch {

// What the system does for the shell; tests put failures in its place.
struct launch_system {
  void* (*allocate)(std::size_t size);  // zeroed, of the process and not of a task
  void (*release)(void* address);
  // Runs body(argument) in a detached thread. 0 or an error number.
  int (*start_thread)(void (*body)(void* argument), void* argument);
  // Starts a program with the NULL-terminated arguments, and reaps it when it has ended.
  // 0 or an error number.
  int (*start_program)(const char* file, char* const* arguments, bool detached);
};

// The real one.
const launch_system& linux_system();

// A program without tasks: what a library carries.
const zvr_program& no_tasks();

// Number of the row with this name, or -1. An empty name is in no table.
int find_task(const zvr_program& program, const char* name);
int find_load(const zvr_program& program, const char* name);

// The name a program is called by, made of the path of its program file.
void program_name(const char* path, char (&name)[ZVR_TASK_NAME]);

[[noreturn]] void run_program(const zvr_program& program, int argument_count, char** arguments);

std::uint16_t call_task(const zvr_program& program, void* task, std::uint16_t task_index, int argument_count,
                        char** arguments);

std::uint16_t create_task(const zvr_program& program, const launch_system& system, void* task, const char* name,
                          int argument_count, char** arguments);

// 1 when a thread has come through its start since the last one was asked for. Written
// for whoever looks; nobody waits for it.
int thread_started();

}  // namespace zvrdb::tasklaunch
