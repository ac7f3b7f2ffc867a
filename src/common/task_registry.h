// Places of live tasks, proved by byte locks of open file descriptions.
#pragma once

#include <cstdint>

#include "zvrco/zvrco.h"

namespace zvrdb::common {

struct Installation;
struct SharedControl;
struct Task;

inline constexpr char kRegistryName[] = "tasks";

// Takes a free place for the task; the caller holds the set-up lock.
bool take_place(const Installation& installation, int folder_fd, SharedControl* control, Task* task);
void give_place_back(SharedControl* control, Task* task);

void describe_place(const SharedControl* control, uint32_t place, co_task_info* out);

// True when the byte of the place is locked by another open file description.
bool place_locked(int registry_fd, uint32_t place);

}  // namespace zvrdb::common
