// What a program of the product does at its start.
#include <sys/prctl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "common/bounded_text.h"
#include "common/small_file.h"
#include "common/task_block.h"

namespace zvrdb::common {
namespace {

constexpr uint32_t kMaxFilters = 128;
constexpr uint32_t kMaxFileSize = 65536;

char filters[kMaxFilters][CO_HARDWARE_NAME];  // under process().mutex
uint32_t filter_count = 0;

}  // namespace
}  // namespace zvrdb::common

using namespace zvrdb::common;

uint16_t co_set_title(void* handle, const char* title) {
  (void)handle;  // programs set it before their first task
  if (title == nullptr) return CO_BAD_ARGUMENT;
  return prctl(PR_SET_NAME, title, 0, 0, 0) == 0 ? CO_OK : CO_IO_ERROR;
}

uint16_t co_read_hw_filter(void* handle) {
  if (task_of(handle) == nullptr) return CO_BAD_ARGUMENT;
  char path[CO_PATH_MAX];
  snprintf(path, sizeof path, "%s/hwfilter", process().installation.base);
  char* text = read_small_file(path, kMaxFileSize);
  std::lock_guard<std::mutex> guard(process().mutex);
  filter_count = 0;
  char* rest = text;
  while (char* line = strsep(&rest, "\n")) {
    co_strip_trailing_blanks(handle, line);
    if (*line == '\0' || *line == '#') continue;
    if (filter_count == kMaxFilters || strlen(line) >= CO_HARDWARE_NAME) continue;
    copy_text(filters[filter_count++], CO_HARDWARE_NAME, line);
  }
  free(text);
  return CO_OK;
}

int co_hw_filtered(void* handle, const char* name) {
  if (task_of(handle) == nullptr || name == nullptr) return 0;
  std::lock_guard<std::mutex> guard(process().mutex);
  for (uint32_t i = 0; i < filter_count; ++i)
    if (strcmp(filters[i], name) == 0) return 1;
  return 0;
}
