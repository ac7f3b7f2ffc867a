// First and last thing of every call, and the end of a task.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::frame {

enum class operation : std::uint16_t { read = 0, write = 1 };

// Null before the task's first call, and for what is no task.
inline DBR_TCB* tcb_of(void* task) {
  const co_task_slots* slots = co_slots(task);
  return slots ? static_cast<DBR_TCB*>(slots->dbr_tcb) : nullptr;
}

// Brings the task and the shared state up to date and takes the semaphore of the
// record's class.  0, 8193, 8201, 8225 or what opening and loading answered.  dbr_out
// follows whatever the result is.
std::int16_t dbr_in(void* task, operation op, std::uint32_t db_id);
void dbr_out(void* task, operation op, std::uint32_t db_id, std::int16_t rc);

// The block of a task's first call.  Null (logged) when it cannot be had.
DBR_TCB* make_tcb(void* task);
// Takes the block down again: ends what das_exit ends, lets go of the memory, gives the
// semaphores back.  The task's next call is its first one then.
void take_down(void* task, DBR_TCB* tcb);
// A task died with "DBR_MEM", which the caller owns now.  A reader, too, may have been at
// work on the files: a first call opens and repairs them, and the end of a task closes them.
void repair_files(void* task);

// Registers das_exit and opens the nine files.  The caller owns "DBR_MEM".
std::int16_t init_db(void* task);
// Closes the task's files; a transaction left open is rolled back.
void das_exit(void* task, std::uint32_t reason);

// Value of the environment variable "cindex_sync_freq": -1 when it is not set, 1000 for
// anything below 20.
std::int32_t sync_frequency_of(const char* text);

// Opens the semaphore of a class if the task has not done so.  False when it cannot be.
bool open_semaphore(void* task, DBR_TCB* tcb, std::uint16_t sem_index);

}  // namespace zvrdb::frame
