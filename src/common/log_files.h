// The files that trace lines and messages go to, opened once a process.
#pragma once

#include <cstddef>

namespace zvrdb::common {

enum class LogFile { trace, messages };

// Appends the line in one write.  A log that was moved away is opened anew.
void append_line(LogFile file, const char* line, size_t length);
// Path of the log; the text stays as long as a task lives.
const char* log_path(LogFile file);
// "2026-11-21 05:19:10.25" of the clock of co_date_time; size 32 is enough.
void stamp_now(char* out, size_t size);
void close_log_files();
// Around fork(2): the child must not inherit a taken lock.
void lock_log_files();
void unlock_log_files();
// In the child, with the lock still taken.
void forget_log_files();

}  // namespace zvrdb::common
