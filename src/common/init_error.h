// The reason of a failed co_init_task or co_reset, kept for each thread.
#pragma once

namespace zvrdb::common {

void clear_init_error();
// Keeps the reason; returns false, so that a failing step can end with it.
const char* init_error_text();
bool init_error(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace zvrdb::common
