#include "requests/keyed_put.h"

#include <algorithm>
#include <cstring>

#include "keyed/keyed.h"
#include "memory/trace.h"

namespace zvrdb::requests {

std::int16_t put_under_identity(void* task, std::uint32_t db_id, file_entry* handle, void* key,
                                const identity& head, const void* record, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const std::uint32_t whole = std::max<std::uint32_t>(length, head.length);
  auto* copy = static_cast<unsigned char*>(co_malloc(task, whole, CO_MEM_PRIVATE, "PUT_REQ"));
  if (!copy) {
    co_log2(task, 36355, 0, 0, 0, "%s", "PUT_REQ");
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  std::memcpy(copy, head.bytes, head.length);
  if (length > head.length)
    std::memcpy(copy + head.length, static_cast<const unsigned char*>(record) + head.length,
                length - head.length);
  rc = keyed::put_keyed(task, db_id, handle, key, copy, whole);
  co_free_int(task, copy, __func__);
  return rc;
}

}  // namespace zvrdb::requests
