// The system calls by which a process changes what others see: writes, flushes, byte locks,
// links, names.  Those of this program and of all its libraries come by here, so that a
// process can be killed before or behind any of them.
#pragma once

namespace crash_test {

// From now on each such call counts two points, one before it and one behind it.  At the
// point of this number, from 1 on, the process is killed; 0: it is not, and points are only
// counted.
void count_points(int kill_at);
// Counts no more; how many there were.
int end_points();
// The call of a point of the run, "pwrite" for one; for a message.
const char* call_of_point(int point);
// Bytes to a descriptor, uncounted.
void tell(int descriptor, const void* bytes, unsigned long n);

}  // namespace crash_test
