#include "tasklaunch/version.h"

#include <zvrco/zvrco.h>

namespace zvrdb::tasklaunch {
namespace {

constexpr uint32_t component = 4;
// Fixed texts, so that one source makes one library, byte for byte.
constexpr const char* build_date = "Dec 11 2000";
constexpr const char* build_time = "23:34:09";

}  // namespace

void db_ver_reg(void* task) {
  co_reg_version(task, component, build_date, build_time);
}

}  // namespace zvrdb::tasklaunch
