// The version that the library registers for each of its tasks.
#pragma once

namespace zvrdb::tasklaunch {

// Records build date and time of this library (component 4) in the task.
void db_ver_reg(void* task);

}  // namespace zvrdb::tasklaunch
