// Authorization levels: the file "users" of the base directory, then system groups.
#include <grp.h>
#include <pwd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/small_file.h"
#include "common/task_block.h"

namespace zvrdb::common {
namespace {

constexpr uint16_t kUnknownUser = 255;
constexpr uint16_t kNotAuthorized = 254;
constexpr uint32_t kMaxFileSize = 1u << 20;
constexpr int kMaxGroups = 1024;

struct GroupLevel {
  const char* group;
  uint16_t level;
};
// The highest one that the user belongs to counts.
constexpr GroupLevel kGroupLevels[] = {{"zvradm", 2}, {"zvrbld", 1}, {"zvrusr", 0}};

// Cuts the next word off the line; null when there is none.
char* next_word(char** line) {
  char* start = *line + strspn(*line, " \t\r");
  if (*start == '\0') return nullptr;
  char* end = start + strcspn(start, " \t\r");
  if (*end != '\0') *end++ = '\0';
  *line = end;
  return start;
}

bool level_of_word(const char* word, uint16_t* level) {
  if (strcmp(word, "none") == 0) {
    *level = kNotAuthorized;
    return true;
  }
  char* end = nullptr;
  const unsigned long value = strtoul(word, &end, 10);
  if (*word < '0' || *word > '9' || *end != '\0' || value >= kNotAuthorized) return false;
  *level = static_cast<uint16_t>(value);
  return true;
}

// The line of this user and target beats the one of the user alone.
uint16_t level_by_file(char* text, const char* user, const char* target) {
  uint16_t general = kUnknownUser;
  char* rest = text;
  while (char* line = strsep(&rest, "\n")) {
    if (*line == '#') continue;
    const char* name = next_word(&line);
    const char* word = name == nullptr ? nullptr : next_word(&line);
    uint16_t level;
    if (word == nullptr || strcmp(name, user) != 0 || !level_of_word(word, &level)) continue;
    const char* where = next_word(&line);
    if (where == nullptr) {
      if (general == kUnknownUser) general = level;
    } else if (target != nullptr && strcmp(where, target) == 0) {
      return level;
    }
  }
  return general;
}

bool group_number(const char* name, gid_t* number) {
  char room[16384];
  struct group entry;
  struct group* found = nullptr;
  if (getgrnam_r(name, &entry, room, sizeof room, &found) != 0 || found == nullptr) return false;
  *number = found->gr_gid;
  return true;
}

uint16_t level_by_groups(const char* user) {
  char room[16384];
  struct passwd entry;
  struct passwd* found = nullptr;
  if (getpwnam_r(user, &entry, room, sizeof room, &found) != 0 || found == nullptr) return kUnknownUser;
  gid_t groups[kMaxGroups];
  int count = kMaxGroups;
  if (getgrouplist(user, found->pw_gid, groups, &count) < 0) count = kMaxGroups;
  for (const GroupLevel& row : kGroupLevels) {
    gid_t wanted;
    if (!group_number(row.group, &wanted)) continue;
    for (int i = 0; i < count; ++i)
      if (groups[i] == wanted) return row.level;
  }
  return kUnknownUser;
}

}  // namespace
}  // namespace zvrdb::common

using namespace zvrdb::common;

uint16_t co_get_uauth(void* handle, const char* user, const char* target, uint16_t* level) {
  if (task_of(handle) == nullptr || user == nullptr || level == nullptr) return CO_BAD_ARGUMENT;
  *level = kUnknownUser;
  if (*user == '\0') return CO_OK;
  if (target != nullptr && *target == '\0') target = nullptr;
  char path[CO_PATH_MAX];
  snprintf(path, sizeof path, "%.190s/users", process().installation.base);
  if (char* text = read_small_file(path, kMaxFileSize)) {
    *level = level_by_file(text, user, target);
    free(text);
  }
  if (*level == kUnknownUser) *level = level_by_groups(user);
  return CO_OK;
}
