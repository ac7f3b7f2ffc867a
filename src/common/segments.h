// Named shared segments: a file each, mapped once a process.
//
// A process that has a segment mapped holds a read lock on its file.  Whoever gets
// the write lock knows that nobody has it mapped, and may remove the name while it
// holds that lock; who locks a file for reading looks afterwards whether it still
// has a name, and begins again otherwise.
#pragma once

#include <cstdint>

namespace zvrdb::common {

struct Task;

void* attach_or_make_segment(Task* task, const char* name, uint32_t size);
// Gives back one task's address; false when the address is no segment's.
bool drop_segment_reference(Task* task, void* address);

// The next three are called under process().mutex.
void release_segments_of(Task* task);
void release_all_segments();
// In a forked child.
void forget_segments_of_parent();

}  // namespace zvrdb::common
