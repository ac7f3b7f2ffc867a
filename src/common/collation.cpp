#include "common/collation.h"

#include <locale.h>

#include <clocale>
#include <cstdlib>
#include <cstring>

#include "common/bounded_text.h"
#include "common/init_error.h"
#include "common/task_block.h"

namespace zvrdb::common {
namespace {

constexpr int kCategories = LC_COLLATE_MASK | LC_CTYPE_MASK;

bool is_plain(const char* name) {
  return strcmp(name, "C") == 0 || strcmp(name, "POSIX") == 0;
}

// Its characters are UTF-8 and its order is that of their bytes.
bool is_plain_utf8(const char* name) {
  return strcmp(name, "C.UTF-8") == 0 || strcmp(name, "C.utf8") == 0;
}

}  // namespace

void choose_collation(char* name, size_t size) {
  const char* wanted = nullptr;
  for (const char* variable : {"LC_ALL", "LC_COLLATE", "LANG"}) {
    wanted = getenv(variable);
    if (wanted != nullptr && *wanted != '\0') break;
  }
  // A path would name a file of the caller's own; a name too long cannot be kept.
  const bool usable =
      wanted != nullptr && *wanted != '\0' && strchr(wanted, '/') == nullptr && strlen(wanted) < size;
  if (usable && !is_plain(wanted)) {
    if (locale_t locale = newlocale(kCategories, wanted, nullptr)) {
      freelocale(locale);
      copy_text(name, size, wanted);
      return;
    }
  }
  copy_text(name, size, "C");
}

bool open_collation(const char* name) {
  Process& here = process();
  here.plain_order = true;
  here.characters = Process::Characters::bytes;
  if (is_plain(name)) return true;
  // Opening the locale would take a tenth of a millisecond, and every process begins with it.
  if (is_plain_utf8(name)) {
    here.characters = Process::Characters::utf8;
    return true;
  }
  char checked[kCollationNameSize];
  copy_text(checked, sizeof checked, name);
  here.locale = newlocale(kCategories, checked, nullptr);
  if (here.locale == nullptr)
    return init_error("the installation sorts names by the locale %s, which this system does not have",
                      checked);
  here.plain_order = false;
  const locale_t before = uselocale(here.locale);
  if (MB_CUR_MAX > 1) here.characters = Process::Characters::of_locale;
  uselocale(before);
  return true;
}

void close_collation() {
  Process& here = process();
  if (here.locale != nullptr) freelocale(here.locale);
  here.locale = nullptr;
  here.plain_order = true;
  here.characters = Process::Characters::bytes;
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

int co_collate(void* handle, const char* a, const char* b) {
  (void)handle;
  if (a == nullptr || b == nullptr) return (a != nullptr) - (b != nullptr);
  const Process& here = process();
  return here.plain_order ? strcmp(a, b) : strcoll_l(a, b, here.locale);
}

const char* co_collation_name(void* handle) {
  return task_of(handle) == nullptr ? "C" : process().control->collation;
}
