#include "targets/focal_points.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "memory/codes.h"
#include "memory/trace.h"
#include "targets/target_fields.h"

namespace zvrdb::targets {
namespace {

struct focal_entry {
  char name[64];
  char rgn[8];
  char ren[8];
};
static_assert(sizeof(focal_entry) == 80);

struct focal_list {
  std::uint32_t* count;
  focal_entry* entries;
  std::uint32_t used;  // entries that may be looked at
};

focal_list focal_points(void* task) {
  auto* area = static_cast<unsigned char*>(co_croca(task, CO_AREA_FOCAL_POINTS));
  if (!area) return {nullptr, nullptr, 0};
  focal_list list{reinterpret_cast<std::uint32_t*>(area) + 1, reinterpret_cast<focal_entry*>(area + 8), 0};
  list.used = std::min(*list.count, CO_FOCAL_CAPACITY);
  return list;
}

focal_entry* find(const focal_list& list, const char* name) {
  for (std::uint32_t i = 0; i < list.used; ++i)
    if (std::strncmp(list.entries[i].name, name, sizeof list.entries[i].name) == 0) return &list.entries[i];
  return nullptr;
}

void set_name(focal_entry* entry, const char* name) {
  std::memset(entry->name, 0, sizeof entry->name);
  std::memcpy(entry->name, name, strnlen(name, sizeof entry->name - 1));
}

void set_dsu(focal_entry* entry, const char* rgn, const char* ren) {
  std::memcpy(entry->rgn, rgn, sizeof entry->rgn);
  std::memcpy(entry->ren, ren, sizeof entry->ren);
}

}  // namespace

void enter_focal_point(void* task, const char* name, const char* rgn, const char* ren) {
  trace_bracket trace(task, "enter_focal_point");
  focal_list list = focal_points(task);
  if (!list.entries) return;
  if (focal_entry* entry = find(list, name)) {
    set_dsu(entry, rgn, ren);
    return;
  }
  if (list.used == CO_FOCAL_CAPACITY) {
    co_log2(task, 36383, 0, 0, 0, "%s|%ld", "Focal points", static_cast<long>(CO_FOCAL_CAPACITY));
    return;
  }
  focal_entry* entry = &list.entries[list.used];
  set_name(entry, name);
  set_dsu(entry, rgn, ren);
  *list.count = list.used + 1;
}

bool remove_focal_point(void* task, const char* name) {
  trace_bracket trace(task, "remove_focal_point");
  focal_list list = focal_points(task);
  focal_entry* entry = find(list, name);
  if (!entry) return false;
  focal_entry* last = list.entries + (list.used - 1);
  std::memmove(entry, entry + 1, static_cast<std::size_t>(last - entry) * sizeof *entry);
  std::memset(last, 0, sizeof *last);
  *list.count = list.used - 1;
  return true;
}

bool rename_focal_point(void* task, const char* old_name, const char* new_name) {
  trace_bracket trace(task, "rename_focal_point");
  focal_entry* entry = find(focal_points(task), old_name);
  if (!entry) return false;
  set_name(entry, new_name);
  return true;
}

void keep_focal_points(void* task, bool (*stays)(void* task, const char* name)) {
  trace_bracket trace(task, "keep_focal_points");
  const focal_list all = focal_points(task);
  if (!all.entries) return;
  focal_list kept = all;
  kept.used = 0;
  for (std::uint32_t i = 0; i < all.used; ++i) {
    const focal_entry& entry = all.entries[i];
    if (!stays(task, entry.name) || find(kept, entry.name)) continue;
    if (i != kept.used) all.entries[kept.used] = entry;
    ++kept.used;
  }
  std::memset(all.entries + kept.used, 0, (all.used - kept.used) * sizeof *all.entries);
  *all.count = kept.used;
}

void log_missing_focal_point(void* task, const char* name) {
  ZVR_TRACE(task, 5, 2, "Code error: focal point %s not found in croca list", name);
  co_log2(task, 36468, 0, 0, 0, "%s", name);
}

}  // namespace zvrdb::targets
