// Paths of the installation and names of temporary files.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/bounded_text.h"
#include "common/task_block.h"

namespace zvrdb::common {
namespace {

// A temporary file for BASE/a/b of class 0, made while BASE/a/b existed, is
//   BASE/db/tmp/t0e_a%2Fb
// ('e' existed, 'n' new; "%2F" a separator, "%25" a percent sign).
constexpr char kTemporaryDirectory[] = "/db/tmp/";
constexpr size_t kHeadLength = 4;
constexpr uint16_t kMaxClass = 9;

const char* base_directory() {
  const Process& here = process();
  return here.control == nullptr ? nullptr : here.installation.base;
}

bool append_escaped(char* out, size_t size, const char* relative) {
  size_t length = strlen(out);
  for (const char* c = relative; *c != '\0'; ++c) {
    const char* escape = *c == CO_SEPARATOR ? "%2F" : *c == '%' ? "%25" : nullptr;
    const size_t more = escape == nullptr ? 1 : 3;
    if (length + more >= size) return false;
    if (escape == nullptr)
      out[length] = *c;
    else
      memcpy(out + length, escape, more);
    length += more;
    out[length] = '\0';
  }
  return true;
}

bool append_unescaped(char* out, size_t size, const char* name) {
  size_t length = strlen(out);
  for (const char* c = name; *c != '\0'; ++c) {
    char plain = *c;
    if (plain == CO_SEPARATOR) return false;
    if (plain == '%') {
      if (strncmp(c, "%2F", 3) == 0)
        plain = CO_SEPARATOR;
      else if (strncmp(c, "%25", 3) != 0)
        return false;
      c += 2;
    }
    if (length + 1 >= size) return false;
    out[length++] = plain;
    out[length] = '\0';
  }
  return true;
}

// No step of the path may lead out of the base directory.
bool stays_inside(const char* relative) {
  while (*relative != '\0') {
    const size_t step = strcspn(relative, "/");
    if (step == 0 || (step == 1 && relative[0] == '.') ||
        (step == 2 && relative[0] == '.' && relative[1] == '.'))
      return false;
    relative += step;
    if (*relative == CO_SEPARATOR && *++relative == '\0') return false;
  }
  return true;
}

}  // namespace
}  // namespace zvrdb::common

using namespace zvrdb::common;

uint16_t co_get_orvo_path(void* handle, char* buffer, uint32_t zero) {
  (void)zero;
  if (task_of(handle) == nullptr || buffer == nullptr) return CO_BAD_ARGUMENT;
  copy_text(buffer, CO_PATH_MAX, process().installation.base);
  return CO_OK;
}

uint16_t co_build_objname(void* handle, char* directory, const char* name, char* out, uint32_t size) {
  (void)handle;
  if (directory == nullptr || name == nullptr || size == 0) return CO_BAD_ARGUMENT;
  const size_t head = strnlen(directory, size);
  const size_t tail = strnlen(name, size);
  const bool border = head > 0 && head < size && directory[head - 1] != CO_SEPARATOR;
  if (head + border + tail >= size) return CO_BAD_ARGUMENT;
  if (out == nullptr) out = directory;
  if (out != directory) memcpy(out, directory, head);
  if (border) out[head] = CO_SEPARATOR;
  memcpy(out + head + border, name, tail);
  out[head + border + tail] = '\0';
  return CO_OK;
}

uint16_t co_db_get_tmpnam(const char* target, char* temporary, uint16_t sem_index, uint16_t exists) {
  const char* base = base_directory();
  if (target == nullptr || temporary == nullptr || base == nullptr || sem_index > kMaxClass)
    return CO_BAD_ARGUMENT;
  const size_t base_length = strlen(base);
  if (strncmp(target, base, base_length) != 0 || target[base_length] != CO_SEPARATOR) return CO_BAD_ARGUMENT;
  const char* relative = target + base_length + 1;
  if (*relative == '\0' || !stays_inside(relative)) return CO_BAD_ARGUMENT;
  char path[CO_PATH_MAX];
  snprintf(path, sizeof path, "%s%st%u%c_", base, kTemporaryDirectory, +sem_index, exists != 0 ? 'e' : 'n');
  if (!append_escaped(path, sizeof path, relative)) return CO_BAD_ARGUMENT;
  copy_text(temporary, CO_PATH_MAX, path);
  return CO_OK;
}

int co_db_get_name(char* target, const char* entry, uint16_t sem_index, uint16_t* existed) {
  const char* base = base_directory();
  if (target == nullptr || entry == nullptr || existed == nullptr || base == nullptr || sem_index > kMaxClass)
    return 0;
  if (strnlen(entry, kHeadLength + 1) <= kHeadLength || entry[0] != 't' ||
      entry[1] != static_cast<char>('0' + sem_index) || (entry[2] != 'e' && entry[2] != 'n') ||
      entry[3] != '_')
    return 0;
  char path[CO_PATH_MAX];
  copy_text(path, sizeof path, base);
  const size_t head = strlen(path) + 1;
  path[head - 1] = CO_SEPARATOR;
  path[head] = '\0';
  if (!append_unescaped(path, sizeof path, entry + kHeadLength) || !stays_inside(path + head)) return 0;
  copy_text(target, CO_PATH_MAX, path);
  *existed = entry[2] == 'e' ? 1 : 0;
  return 1;
}
