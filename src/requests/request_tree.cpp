// Deletion of a whole request.  The records of one type stand together in the file, so the
// children of a request are one range of keys for each type.
//
// The records go in one transaction on "userreq", the correlators of the functions in one
// on "snacorr", and both end together. Without commit journals the second ends behind the
// first: a kill between the two leaves a correlator without its function, which nobody meets,
// and never a function that lost its correlator.
#include <zvrdb/records.h>

#include <cstring>

#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "recfile/recfile.h"
#include "requests/correlators.h"
#include "requests/request_parts.h"
#include "requests/requests.h"

namespace zvrdb::requests {
namespace {

using memory::tcb_of;

constexpr std::uint32_t deleted_types[] = {DB_RQT, DB_RQD, DB_FAN, DB_RQV, DB_RQF};
constexpr std::uint32_t request_in_key = sizeof(std::uint32_t);  // behind the db_id
constexpr std::uint32_t request_in_key_len = 28;                 // source, user, sequence, recursion
constexpr std::uint32_t function_in_key = 32;

struct tree {
  void* task;
  file_entry* file;
  db_rqf_id identifier;  // its function is that of the correlator to delete
  unsigned char root[request_key_len];
  bool owns_correlators;  // this deletion has begun the transaction on correlators
};

// A client's own transaction on correlators takes these deletions in.
std::int16_t begin_on_correlators(tree& t) {
  if (t.owns_correlators || tcb_of(t.task)->trans_active[DB_COO] != 0) return DBE_OK;
  const std::int16_t rc = recfile::start_trans(t.task, DB_COO);
  t.owns_correlators = rc == DBE_OK;
  return rc;
}

std::int16_t delete_correlator(tree& t, const unsigned char* function_key) {
  std::memcpy(t.identifier.subreq_id, function_key + function_in_key, sizeof t.identifier.subreq_id);
  std::int16_t rc = begin_on_correlators(t);
  if (rc != DBE_OK) return rc;
  const void* keys[] = {&t.identifier};
  rc = del_coo(t.task, 1, keys);
  if (rc != DBE_NOT_FOUND) return rc;
  if (recfile::locate_failed(tcb_of(t.task)->corr_file)) return DBE_IO_ERROR;
  ZVR_TRACE(t.task, 2, 2, "%s", "correlator record not found, setting rc to OK");
  return DBE_OK;
}

// The root's key under the child's type sorts ahead of all children of that type.
std::int16_t delete_children(tree& t, std::uint32_t db_id) {
  unsigned char at[request_key_len];
  std::memcpy(at, t.root, sizeof at);
  std::memcpy(at, &db_id, sizeof db_id);
  for (;;) {
    std::int16_t rc = recfile::db_locate_surely(t.task, t.file, at, recfile::KEY_GE);
    if (rc != DBE_OK) return rc == DBE_NOT_FOUND ? static_cast<std::int16_t>(DBE_OK) : rc;
    if (std::memcmp(at + request_in_key, t.root + request_in_key, request_in_key_len) != 0) return DBE_OK;
    rc = recfile::db_delete(t.task, at, t.file);
    std::uint32_t found = 0;
    std::memcpy(&found, at, sizeof found);
    if (rc == DBE_OK && found == DB_RQF) rc = delete_correlator(t, at);
    if (rc != DBE_OK) return rc;
  }
}

std::int16_t delete_all(tree& t) {
  for (const std::uint32_t db_id : deleted_types) {
    const std::int16_t rc = delete_children(t, db_id);
    if (rc != DBE_OK) return rc;
  }
  return recfile::db_delete(t.task, t.root, t.file);
}

// 0 and the root's key; 8194, also for a root that cannot be looked for.
std::int16_t find_root(tree& t) {
  std::int16_t rc = build_request_key(t.task, DB_RQR, &t.identifier, sizeof(db_rqr_id), t.root);
  if (rc != DBE_OK) return rc;
  rc = recfile::db_locate(t.task, t.file, t.root, recfile::KEY_EQ);
  if (rc == DBE_OK) return rc;
  ZVR_TRACE(t.task, 2, 2, "%s", "No ROOT record found");
  return DBE_NOT_FOUND;
}

// When the records are gone for good, correlators that cannot be are left over.
std::int16_t end(const tree& t, std::int16_t rc) {
  if (t.owns_correlators) return recfile::end_both(t.task, DB_RQR, DB_COO, rc).first;
  if (rc == DBE_OK) return recfile::commit(t.task, DB_RQR);
  recfile::rollback(t.task, DB_RQR);
  return rc;
}

}  // namespace

std::int16_t del_rq_tree(void* task, const void* identifier, char (&identifier_text)[CO_REQUEST_TEXT]) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  tree t = {};
  t.task = task;
  t.file = tcb_of(task)->req_file;
  std::memcpy(&t.identifier.request, identifier, sizeof t.identifier.request);
  co_bld_reqid(task, &t.identifier, identifier_text);
  rc = find_root(t);
  if (rc == DBE_OK) rc = recfile::start_trans(task, DB_RQR);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  return rc = end(t, delete_all(t));
}

}  // namespace zvrdb::requests
