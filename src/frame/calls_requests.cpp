// Calls on requests and correlators beside the generic ones.
#include "frame/call_bracket.h"
#include "requests/correlators.h"
#include "requests/requests.h"

using namespace zvrdb;
using namespace zvrdb::frame;

namespace {

constexpr std::uint32_t request_deleted = 36461;
constexpr std::uint32_t request_not_deleted = 36462;

void log_deletion(void* task, const char* identifier, std::int16_t rc) {
  if (rc == DBE_OK)
    co_log2(task, request_deleted, 0, 0, 0, "%s", identifier);
  else
    co_log2(task, request_not_deleted, 0, 0, 0, "%s|%hx", identifier, static_cast<unsigned short>(rc));
}

}  // namespace

extern "C" {

int16_t db_get_lst_rec(void* task, const void* identifier, void* record, uint16_t record_len) {
  return framed_call(task, __func__, operation::read, DB_RQR, [&]() -> std::int16_t {
    if (!identifier) return DBE_NOT_FOUND;
    if (!take_area(&record, record_len)) return DBE_BAD_RECORD;
    return requests::get_lst_rec(task, identifier, record, record_len);
  });
}

int16_t db_del_rq_tree(void* task, const void* identifier) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  char identifier_text[CO_REQUEST_TEXT] = "";
  rc = dbr_in(task, operation::write, DB_RQR);
  if (rc == DBE_OK)
    rc = identifier ? requests::del_rq_tree(task, identifier, identifier_text) : std::int16_t{DBE_NOT_FOUND};
  else
    bracket.quitting();
  // Told also when the call was refused, then without a name.
  log_deletion(task, identifier_text, rc);
  dbr_out(task, operation::write, DB_RQR, rc);
  return rc;
}

int16_t db_reqid2corr(void* task, void* record) {
  return framed_call(task, __func__, operation::write, DB_COO, [&]() -> std::int16_t {
    if (!record) return DBE_BAD_RECORD;
    return requests::reqid2corr(task, record);
  });
}

int16_t db_corr2reqid(void* task, void* record) {
  return framed_call(task, __func__, operation::write, DB_COO, [&]() -> std::int16_t {
    if (!record) return DBE_BAD_RECORD;
    return requests::corr2reqid(task, record);
  });
}

}  // extern "C"
