#include "local_target.h"

#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <cstring>

#include "refusals.h"

namespace zvradm {

std::string local_target_name(void* task) {
  char name[CO_PATH_MAX] = {};
  const std::uint16_t code = co_get_target(task, name, 0);
  if (code != CO_OK)
    throw refusal("the name of the local target cannot be read: code " + std::to_string(code));
  return std::string(name, strnlen(name, sizeof name));
}

void build_shared_tables(void* task) {
  std::uint32_t number = 0;
  const std::int16_t code = db_get_trg_index(task, local_target_name(task).c_str(), &number);
  if (code != DBE_NO_TARGET) require_ok("building the shared tables", code);
}

}  // namespace zvradm
