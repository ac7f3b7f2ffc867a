#include <cstring>

#include "keyed/keyed.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "recfile/recfile.h"
#include "requests/request_parts.h"
#include "requests/requests.h"

namespace zvrdb::requests {
namespace {

constexpr std::uint32_t key_recursion = 28;
constexpr std::uint32_t above_all_recursions = 0xFFFFFFFFu;

}  // namespace

std::int16_t get_lst_rec(void* task, const void* identifier, void* record, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  file_entry* file = memory::tcb_of(task)->req_file;
  unsigned char key[request_key_len];
  rc = build_request_key(task, DB_RQR, identifier, sizeof(db_rqr_id), key);
  if (rc == DBE_OK) {
    std::memcpy(key + key_recursion, &above_all_recursions, sizeof above_all_recursions);
    rc = recfile::db_locate(task, file, key, recfile::KEY_LE);
    if (rc == DBE_NOT_FOUND) ZVR_TRACE(task, 2, 2, "%s", "No ROOT record found");
  }
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  return rc = keyed::get_keyed(task, DB_RQR, file, key, record, length);
}

}  // namespace zvrdb::requests
