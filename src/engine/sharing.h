// Handles side by side: slots, reader bytes, the writer arbiter, and the brackets
// around every read and write operation.
#pragma once

#include "engine/psp.h"

namespace zvrdb::engine {

// Brackets.  Each enter that answered 0 needs one leave.  The result of a leave that
// is not 0 takes the place of a good result.
int rdenter(PSP* h);   // 0, e_byte_lock, e_no_memory
int rdleave(PSP* h);
int wrenter(PSP* h);   // 0, e_byte_lock, e_write_flag, e_no_memory, errors of the log
int wrleave(PSP* h);

// In place of wrleave, of a handle with a journal: the outermost operation, which came to
// `result`, becomes a promise and stays open (0), or never was and is closed (the error).
struct group_link;
int wrleave_with_promise(PSP* h, int result, const group_link& link);
// Closes an operation that became a promise; result: why it is not kept.
enum class promise_fate {
  counts,
  broken,
  open,     // nobody can know yet: who next comes to the file has to find out
};
void leave_promised(PSP* h, promise_fate fate, int result);

// A good result gives way to that of a leave.
inline int leave_result(int result, int left) { return left != e_ok ? left : result; }

int getslot(PSP* h, bool read_write);   // 0, e_no_slot, e_byte_lock
void relslot(PSP* h);

// Reader bytes: the own one, or all; nothing is done if it has all.  e_byte_lock when they cannot be had.
int lockread(PSP* h, bool all);
int unlockread(PSP* h);
// Ends a call of several operations, but for its locks: the operation at hand lets go of them, or
// release_writer.
void stop_holding(PSP* h);
int release_writer(PSP* h);
int getarbiter(PSP* h);
// The arbiter, and what others did meanwhile is known.  On an error locks may be held.
int become_writer(PSP* h);
int relarbiter(PSP* h);
// Waits for the writer at work, if there is one.
int waitarbiter(PSP* h);

// Compares the generation with the file's; when it moved, forgets cached nodes, loads
// the header and marks the cursors.  0, e_io, errors of the header.
int gencheck(PSP* h);
// The same between operations, for the node cache: 1 when the generation moved.
int gencheck_lightly(PSP* h);

// Whether the handle of that slot lives.
bool slot_is_alive(PSP* h, int slot);

}  // namespace zvrdb::engine
