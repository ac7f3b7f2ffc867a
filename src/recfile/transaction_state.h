// What a task remembers of its open transactions beside the engine's own state.
#pragma once

#include <cstdint>

#include "memory/dbr_tcb.h"
#include "recfile/recfile.h"

namespace zvrdb::recfile {

// A record of the file is about to be changed in the running transaction.
void note_change(DBR_TCB* tcb, unsigned index);
// The file's transaction is about to be undone: when earlier calls changed records in
// it, what is in memory may no longer be what is in the file.
void note_undone(DBR_TCB* tcb, unsigned index);

// The implicit transaction of one record operation.  Joins a transaction that is
// active for the file and begins one otherwise.  0 or 8455.
struct implicit_transaction {
  bool owned = false;
  bool reopened = false;  // the file was opened anew: its handle stands on no record
};
struct open_file;
std::int16_t begin_implicit(void* task, const open_file& file, implicit_transaction* transaction);
// rc: result of the operation; what it returns is the result of the whole.
std::int16_t end_implicit(void* task, const open_file& file, const implicit_transaction& transaction,
                          std::int16_t rc);

}  // namespace zvrdb::recfile
