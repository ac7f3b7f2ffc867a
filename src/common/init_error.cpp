#include "common/init_error.h"

#include <cstdarg>
#include <cstdio>

#include "zvrco/zvrco.h"

namespace zvrdb::common {
namespace {
thread_local char reason[512];
}

void clear_init_error() {
  reason[0] = '\0';
}

bool init_error(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(reason, sizeof reason, format, arguments);
  va_end(arguments);
  return false;
}

const char* init_error_text() {
  return reason;
}

}  // namespace zvrdb::common

extern "C" const char* co_init_error(void) {
  return zvrdb::common::init_error_text();
}
