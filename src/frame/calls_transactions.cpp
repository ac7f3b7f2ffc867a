// Explicit transactions: the frame around those of the record files.
#include "frame/call_bracket.h"
#include "recfile/recfile.h"

using namespace zvrdb;
using namespace zvrdb::frame;

namespace {

// The calls that end a transaction; start_trans_id is let go of only by the call that
// names it.
std::int16_t end_explicit(void* task, const char* function, std::uint32_t db_id,
                          std::int16_t (*end)(void*, std::uint32_t)) {
  return framed_call(task, function, operation::write, db_id, [&] {
    const std::int16_t rc = end(task, db_id);
    DBR_TCB* tcb = tcb_of(task);
    if (rc == DBE_OK && tcb->start_trans_id == db_id) tcb->start_trans_id = no_trans_id;
    return rc;
  });
}

}  // namespace

extern "C" {

int16_t db_start_trans(void* task, uint32_t db_id) {
  return framed_call(task, __func__, operation::write, db_id, [&] {
    DBR_TCB* tcb = tcb_of(task);
    const std::uint32_t former = tcb->start_trans_id;
    tcb->start_trans_id = db_id;
    const std::int16_t rc = recfile::start_trans(task, db_id);
    // A transaction that did not begin leaves the one before it its name.
    if (rc != DBE_OK) tcb->start_trans_id = former;
    return rc;
  });
}

int16_t db_commit(void* task, uint32_t db_id) {
  return end_explicit(task, __func__, db_id, recfile::commit);
}

int16_t db_rollback(void* task, uint32_t db_id) {
  return end_explicit(task, __func__, db_id, recfile::rollback);
}

}  // extern "C"
