#include "control_block.h"

#include <zvrco/zvrco.h>

#include <cstring>

#include "refusals.h"

namespace zvradm {

zvrdb::DBR_CNTL read_control_block(void* task) {
  const void* area = co_croca(task, CO_AREA_DBR_CNTL);
  if (!area) throw refusal("the shared control block cannot be reached");
  zvrdb::DBR_CNTL block;
  std::memcpy(&block, area, sizeof block);
  return block;
}

}  // namespace zvradm
