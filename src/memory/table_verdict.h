// How the checks of the tables tell what they found.
#pragma once

#include <zvrco/zvrco.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>

namespace zvrdb::memory {

struct verdict {
  char* reason;
  std::size_t reason_size;

  [[gnu::format(printf, 2, 3)]] bool unsound(const char* format, ...) const {
    if (reason && reason_size > 0) {
      va_list arguments;
      va_start(arguments, format);
      std::vsnprintf(reason, reason_size, format, arguments);
      va_end(arguments);
    }
    return false;
  }
};

// One byte a number from 0 to size, zero at first; marks is null when there is no memory.
struct seen_numbers {
  void* task;
  unsigned char* marks;
  seen_numbers(void* for_task, std::uint32_t size)
      : task(for_task),
        marks(static_cast<unsigned char*>(co_malloc(for_task, size + 1, CO_MEM_PRIVATE, "CHK_TAB"))) {}
  ~seen_numbers() {
    if (marks) co_free_int(task, marks, "seen_numbers");
  }
  seen_numbers(const seen_numbers&) = delete;
  seen_numbers& operator=(const seen_numbers&) = delete;
};

}  // namespace zvrdb::memory
