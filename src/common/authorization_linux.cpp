// Authorization levels: the file "users" of the base directory, then system groups.
#include <grp.h>
#include <pwd.h>

#include <cerrno>
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
constexpr int kMaxGroups = 65536;  // as many as the system gives a user

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

// Room for an entry of the system's files: a group of many members has a long one.
struct EntryRoom {
  char* bytes = nullptr;
  size_t size = 0;
  EntryRoom() = default;
  EntryRoom(const EntryRoom&) = delete;
  EntryRoom& operator=(const EntryRoom&) = delete;
  ~EntryRoom() { free(bytes); }
};

// Asks with more and more room until it is enough; false when it never is.
template <typename Question>
bool ask_with_room(EntryRoom* room, Question question) {
  constexpr size_t kFirstSize = 16384;
  constexpr size_t kLargestSize = 16u << 20;
  for (size_t size = kFirstSize; size <= kLargestSize; size *= 2) {
    char* bytes = static_cast<char*>(realloc(room->bytes, size));
    if (bytes == nullptr) return false;
    room->bytes = bytes;
    room->size = size;
    const int result = question(room);
    if (result != ERANGE) return result == 0;
  }
  return false;
}

bool group_number(const char* name, gid_t* number) {
  EntryRoom room;
  struct group entry;
  struct group* found = nullptr;
  const bool asked = ask_with_room(&room, [&](const EntryRoom* offered) {
    return getgrnam_r(name, &entry, offered->bytes, offered->size, &found);
  });
  if (!asked || found == nullptr) return false;
  *number = found->gr_gid;
  return true;
}

bool primary_group(const char* user, gid_t* number) {
  EntryRoom room;
  struct passwd entry;
  struct passwd* found = nullptr;
  const bool asked = ask_with_room(&room, [&](const EntryRoom* offered) {
    return getpwnam_r(user, &entry, offered->bytes, offered->size, &found);
  });
  if (!asked || found == nullptr) return false;
  *number = found->pw_gid;
  return true;
}

bool is_one_of(gid_t wanted, const gid_t* groups, int count) {
  for (int i = 0; i < count; ++i)
    if (groups[i] == wanted) return true;
  return false;
}

uint16_t level_by_groups(const char* user) {
  gid_t primary;
  if (!primary_group(user, &primary)) return kUnknownUser;
  auto* groups = static_cast<gid_t*>(malloc(kMaxGroups * sizeof(gid_t)));
  if (groups == nullptr) return kUnknownUser;
  int count = kMaxGroups;
  if (getgrouplist(user, primary, groups, &count) < 0) count = kMaxGroups;
  uint16_t level = kUnknownUser;
  for (const GroupLevel& row : kGroupLevels) {
    gid_t wanted;
    if (!group_number(row.group, &wanted) || !is_one_of(wanted, groups, count)) continue;
    level = row.level;
    break;
  }
  free(groups);
  return level;
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
  snprintf(path, sizeof path, "%s/users", process().installation.base);
  if (char* text = read_small_file(path, kMaxFileSize)) {
    *level = level_by_file(text, user, target);
    free(text);
  } else if (errno != ENOENT) {
    return CO_IO_ERROR;  // it may say less of the user than the groups do
  }
  if (*level == kUnknownUser) *level = level_by_groups(user);
  return CO_OK;
}
