// The calls of a program's own tasks, which work with the tables that it defines.
#include "tasklaunch/launch.h"

using namespace zvrdb::tasklaunch;

void zvr_run_program(int argument_count, char** arguments) {
  run_program(zvr_this_program, argument_count, arguments);
}

uint16_t call_task(void* task, uint16_t task_index, int argument_count, char** arguments) {
  return call_task(zvr_this_program, task, task_index, argument_count, arguments);
}

uint16_t co_create_task(void* task, const char* name, int argument_count, char** arguments) {
  return create_task(zvr_this_program, linux_system(), task, name, argument_count, arguments);
}
