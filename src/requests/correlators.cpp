// From request identifier to SNA correlator and back.
#include "requests/correlators.h"

#include <zvrdb/records.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "memory/trace.h"

namespace zvrdb::requests {
namespace {

constexpr unsigned most_attempts = 20;
constexpr char user_from_elsewhere[] = "remuser";

void trace_correlator(void* task, const char* function, const db_coo& record) {
  if (!co_trc_test(task, 2, 2)) return;
  co_trc2(task, 2, 2, function, "record already exists, SNA correlator is: %.*s.%hu/%hu/%hu.%lu",
          static_cast<int>(strnlen(record.origin, sizeof record.origin)), record.origin, record.year,
          static_cast<unsigned short>(record.month), static_cast<unsigned short>(record.day),
          static_cast<unsigned long>(record.sequence));
}

void trace_identifier(void* task, const char* function, const db_coo& record) {
  if (!co_trc_test(task, 2, 2)) return;
  char text[CO_REQUEST_TEXT];
  co_bld_reqid(task, &record, text);
  co_trc2(task, 2, 2, function, "Record already exists reqid is: %s", text);
}

std::int16_t make_correlator(void* task, db_coo* record) {
  std::int16_t rc = DBE_OK;
  for (unsigned attempt = 1; attempt <= most_attempts; ++attempt) {
    rc = build_sna_corr(task, record);
    if (rc != DBE_OK) return rc;
    const void* keys[] = {record};
    rc = put_coo(task, 1, keys, record, sizeof *record);
    if (rc == DBE_OK) return rc;
    ZVR_TRACE(task, 3, 2, "Possibly duplicate key generated. try #%lu", static_cast<unsigned long>(attempt));
  }
  return rc;
}

// Where the request arose is told by nobody: the caller's src_domain and seq_no stay.
void make_identifier(db_coo* record) {
  db_rqr_id& request = record->request.request;
  if (request.user[0] == 0) {
    std::memset(request.user, 0, sizeof request.user);
    std::memcpy(request.user, user_from_elsewhere, sizeof user_from_elsewhere);
  }
  request.recursion_no = 0;
  char date[32] = {};
  const int length =
      std::snprintf(date, sizeof date, "Y%4.4dM%2.2dD%2.2d", record->year, record->month, record->day);
  char(&function)[sizeof record->request.subreq_id] = record->request.subreq_id;
  std::memset(function, 0, sizeof function);
  std::memcpy(function, date, std::min(static_cast<std::size_t>(std::max(length, 0)), sizeof function));
}

}  // namespace

std::int16_t reqid2corr(void* task, void* record) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  db_coo correlator;
  std::memcpy(&correlator, record, sizeof correlator);
  const db_coo sought = correlator;
  const void* keys[] = {&sought};
  db_coo stored;
  rc = get_coo(task, 1, keys, &stored, sizeof stored);
  if (rc == DBE_OK) {
    trace_correlator(task, __func__, stored);
    std::memcpy(record, &stored, sizeof stored);
    return rc;
  }
  rc = make_correlator(task, &correlator);
  std::memcpy(record, &correlator, sizeof correlator);
  return rc;
}

std::int16_t corr2reqid(void* task, void* record) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  db_coo correlator;
  std::memcpy(&correlator, record, sizeof correlator);
  const void* keys[] = {&correlator};
  db_coo stored;
  rc = get_coi(task, 1, keys, &stored, sizeof stored);
  if (rc == DBE_OK) {
    trace_identifier(task, __func__, stored);
    std::memcpy(record, &stored, sizeof stored);
    return rc;
  }
  make_identifier(&correlator);
  rc = put_coo(task, 1, keys, &correlator, sizeof correlator);
  std::memcpy(record, &correlator, sizeof correlator);
  return rc;
}

}  // namespace zvrdb::requests
