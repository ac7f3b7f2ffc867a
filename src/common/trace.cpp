#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/log_files.h"
#include "common/task_block.h"
#include "common/trace_state.h"

namespace zvrdb::common {
namespace {

constexpr uint32_t kAllTrace = 0x1FF;  // levels 0 to 7 of component 2, and component 39
constexpr size_t kLineSize = 2048;

const uint32_t no_trace = 0;
uint32_t environment_word = 0;  // written before co_trace_word points at it

bool word_of_environment(uint32_t* word) {
  const char* text = getenv("ZVR_TRACE");
  if (text == nullptr || *text == '\0') return false;
  if (strcmp(text, "all") == 0) {
    *word = kAllTrace;
    return true;
  }
  char* end = nullptr;
  const unsigned long value = strtoul(text, &end, 0);
  if (*end != '\0') return false;
  *word = static_cast<uint32_t>(value);
  return true;
}

}  // namespace

void trace_by_private_word() {
  co_trace_word = &no_trace;
}

void trace_by_environment_or_shared_word() {
  if (word_of_environment(&environment_word)) {
    co_trace_word = &environment_word;
    return;
  }
  // The test is an inline of a C header, so it reads the atomic as the plain word it is.
  static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));
  co_trace_word = reinterpret_cast<const volatile uint32_t*>(&process().control->trace_word);
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

const volatile uint32_t* co_trace_word = &no_trace;

void co_trc2(void* handle, uint32_t level, uint32_t component, const char* function, const char* format,
             ...) {
  const Task* task = task_of(handle);
  if (task == nullptr || format == nullptr) return;
  char stamp[32];
  stamp_now(stamp, sizeof stamp);
  char line[kLineSize];
  const int head = snprintf(line, sizeof line, "%s %d %s %u/%u %s: ", stamp, getpid(), task->name, level,
                            component, function == nullptr ? "" : function);
  if (head < 0) return;
  size_t length = static_cast<size_t>(head) < sizeof line - 1 ? static_cast<size_t>(head) : sizeof line - 2;
  va_list arguments;
  va_start(arguments, format);
  const int body = vsnprintf(line + length, sizeof line - 1 - length, format, arguments);
  va_end(arguments);
  if (body > 0) length += strnlen(line + length, sizeof line - 1 - length);
  // One line a call, whatever the text holds.
  for (size_t i = 0; i < length; ++i)
    if (static_cast<unsigned char>(line[i]) < 0x20) line[i] = ' ';
  line[length++] = '\n';
  append_line(LogFile::trace, line, length);
}

uint16_t co_set_trace(void* handle, uint32_t word) {
  if (task_of(handle) == nullptr) return CO_BAD_ARGUMENT;
  process().control->trace_word.store(word);
  return CO_OK;
}
