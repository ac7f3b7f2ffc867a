#include <cstring>

#include "tasklaunch/launch.h"

namespace zvrdb::tasklaunch {
namespace {

constexpr zvr_task_row no_task_rows[] = {{"", nullptr, 0, nullptr}};
constexpr zvr_load_row no_load_rows[] = {{"", nullptr}};
constexpr zvr_program program_without_tasks = {no_task_rows, no_load_rows, "", "", ""};

template <class Row>
int find_row(const Row* rows, const char* name) {
  if (!rows || !name) return -1;
  for (int row = 0; rows[row].name[0] != 0; ++row)
    if (std::strncmp(rows[row].name, name, sizeof rows[row].name) == 0) return row;
  return -1;
}

}  // namespace

const zvr_program& no_tasks() {
  return program_without_tasks;
}

int find_task(const zvr_program& program, const char* name) {
  return find_row(program.tasks, name);
}

int find_load(const zvr_program& program, const char* name) {
  return find_row(program.loads, name);
}

}  // namespace zvrdb::tasklaunch
