// Lists of targets: all names into the caller's area, and a cursor with filters over
// the name index.
//
// The cursor lies with the caller, who may keep it, copy it or spoil it: it holds
// positions in the name index instead of addresses, and each call bounds them by the
// table as it stands then.
#include <zvrdb/records.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "keyed/keyed.h"
#include "memory/copy_out.h"
#include "memory/trace.h"
#include "targets/target_access.h"
#include "targets/targets.h"

namespace zvrdb::targets {
namespace {

// Filter record of the caller, which need not be aligned.
constexpr std::size_t filter_name = offsetof(db_trg_filter, name);
constexpr std::size_t filter_type = offsetof(db_trg_filter, type);
constexpr std::size_t filter_mode = offsetof(db_trg_filter, mode);
constexpr std::size_t filter_os_on = offsetof(db_trg_filter, os_filter_on);
constexpr std::size_t filter_os_mask = offsetof(db_trg_filter, os_mask_low);  // the high one follows
constexpr std::size_t filter_server = offsetof(db_trg_filter, server);
constexpr std::size_t filter_exclude = offsetof(db_trg_filter, exclude_filter);

constexpr std::uint8_t by_server = 1;
constexpr std::uint8_t by_mode = 2;
constexpr std::uint8_t by_type = 4;

constexpr std::uint32_t no_entry = 0xFFFFFFFFu;

// The list block.
struct target_list {
  unsigned char list_state[268];  // only first_time is used: 1 in a block that was set up
  char name_filter[64];
  std::uint8_t filter_flags;
  std::uint8_t type_filter;
  std::uint8_t mode_filter;
  std::uint8_t os_filter_on;
  std::uint16_t os_mask[2];  // low, high
  std::uint32_t cursor;      // next position when exclude_filter is not 1
  std::uint32_t last_entry;  // last used position at set-up; no_entry: none
  char srv_filter[64];
  std::uint32_t scan_cursor;  // next position when exclude_filter is 1
  std::uint16_t exclude_filter;
  std::uint16_t spare;
};
static_assert(sizeof(target_list) == trg_list_len);
static_assert(offsetof(target_list, name_filter) == 268);
static_assert(offsetof(target_list, cursor) == 340);
static_assert(offsetof(target_list, scan_cursor) == 412);

// Of the caller's block.
bool was_set_up(const unsigned char* state) {
  std::uint16_t first_time;
  std::memcpy(&first_time, state + keyed::list_first_time, sizeof first_time);
  return first_time == 1;
}

// All but the list state, of which a step uses nothing.
void load_filters(const unsigned char* state, target_list& list) {
  constexpr std::size_t from = offsetof(target_list, name_filter);
  memory::copy_out(reinterpret_cast<unsigned char*>(&list) + from, state + from, sizeof list - from);
}

void mark_set_up(target_list& list) {
  const std::uint16_t first_time = 1;
  std::memcpy(list.list_state + keyed::list_first_time, &first_time, sizeof first_time);
}

// The text before the first `*`, which becomes a NUL in the caller's record too.
void take_name_filter(unsigned char* filter, target_list& list) {
  auto* name = reinterpret_cast<char*>(filter + filter_name);
  const std::size_t n = strnlen(name, name_len);
  if (void* star = std::memchr(name, '*', n)) *static_cast<char*>(star) = 0;
  std::memcpy(list.name_filter, name, strnlen(name, name_len));
}

// Position of the first entry not below the text, which may fill its 64 bytes.
std::int64_t locate(void* task, const char* text) {
  char terminated[name_len + 1] = {};
  std::memcpy(terminated, text, strnlen(text, name_len));
  return memory::locate_name(task, terminated);
}

// The entry found need not be the server itself, it must only be one: a name that no
// target bears then lists nothing.
std::int16_t take_server_filter(void* task, const unsigned char* filter, target_list& list) {
  const auto* server = reinterpret_cast<const char*>(filter + filter_server);
  if (!server[0]) return DBE_OK;
  const TRG_CNTL_ENTRY* slot = slot_at(tcb_of(task), locate(task, server));
  if (!slot) return DBE_EMPTY_LIST;
  if (!(slot->trg_type & type_server)) {
    ZVR_TRACE(task, 3, 2, "This is not a Server");
    return DBE_EMPTY_LIST;
  }
  list.filter_flags |= by_server;
  std::memcpy(list.srv_filter, server, strnlen(server, name_len));
  return DBE_OK;
}

std::int16_t set_up_list(void* task, unsigned char* filter, target_list& list) {
  mark_set_up(list);
  list.last_entry = no_entry;
  take_name_filter(filter, list);
  std::memcpy(&list.exclude_filter, filter + filter_exclude, sizeof list.exclude_filter);
  const std::int16_t rc = take_server_filter(task, filter, list);
  if (rc != DBE_OK) return rc;
  if (list.name_filter[0]) {
    const std::int64_t start = locate(task, list.name_filter);
    if (start < 0) return DBE_EMPTY_LIST;
    list.cursor = static_cast<std::uint32_t>(start);
  }
  list.last_entry = memory::trg_count(tcb_of(task)) - 1;
  list.type_filter = filter[filter_type];
  list.mode_filter = filter[filter_mode];
  list.os_filter_on = filter[filter_os_on];
  std::memcpy(list.os_mask, filter + filter_os_mask, sizeof list.os_mask);
  if (list.type_filter) list.filter_flags |= by_type;
  if (list.mode_filter) list.filter_flags |= by_mode;
  return DBE_OK;
}

bool mode_passes(const target_list& list, const TRG_CNTL_ENTRY& target) {
  if (!(list.filter_flags & by_mode)) return true;
  if (list.mode_filter == mode_focal) return target.trg_mode == mode_focal;
  return (list.mode_filter & target.trg_mode) != 0;
}

bool type_passes(const target_list& list, const TRG_CNTL_ENTRY& target) {
  if (!(list.filter_flags & by_type)) return true;
  // A mobile client counts as local.
  const std::uint8_t type = target.trg_type & type_mobile ? type_mobile | type_local : target.trg_type;
  return (list.type_filter & type) != 0;
}

bool os_passes(const target_list& list, const TRG_CNTL_ENTRY& target) {
  if (!list.os_filter_on) return true;
  std::uint16_t bits[2] = {0, 0};  // of no system when the code has no bit
  if (target.trg_os == os_any)
    bits[0] = bits[1] = 0xFFFF;
  else if (target.trg_os < 32)
    bits[target.trg_os / 16] = static_cast<std::uint16_t>(1u << (target.trg_os % 16));
  return (bits[0] & list.os_mask[0]) || (bits[1] & list.os_mask[1]);
}

bool server_passes(DBR_TCB* tcb, const target_list& list, const TRG_CNTL_ENTRY& target) {
  if (!(list.filter_flags & by_server)) return true;
  const TRG_CNTL_ENTRY* server = memory::trg_slot(tcb, target.srv_num);
  return server && std::strncmp(server->trg_name, list.srv_filter, name_len) == 0;
}

// One walk over the name index on behalf of a list.
struct walk {
  DBR_TCB* tcb;
  target_list& list;
  std::uint32_t end;  // positions from here on are past the list or the table
  std::size_t prefix_len;

  bool excluding() const { return list.exclude_filter == 1; }
  std::uint32_t& cursor() { return excluding() ? list.scan_cursor : list.cursor; }
  bool at_end() { return cursor() >= end; }
  TRG_CNTL_ENTRY* take() { return slot_at(tcb, cursor()++); }
  bool has_prefix(const TRG_CNTL_ENTRY* target) const {
    return target && std::strncmp(target->trg_name, list.name_filter, prefix_len) == 0;
  }
};

// The target that was taken last, as get_trg finds it by its name.  That is this target
// unless another one of the same name, left by a rename, stands before it.
std::int16_t read_taken(void* task, walk& walk, TRG_CNTL_ENTRY* target, void* buffer, std::uint16_t length) {
  const std::uint32_t position = walk.cursor() - 1;
  const TRG_CNTL_ENTRY* before = position == 0 ? nullptr : slot_at(walk.tcb, position - 1);
  const bool is_first = !before || std::strncmp(before->trg_name, target->trg_name, name_len) != 0;
  if (is_first && target->trg_name[name_len - 1] == 0)
    return read_target(task, target, walk.tcb->name_index[position].trg_index, buffer, length);
  char name[name_len + 1] = {};
  std::memcpy(name, target->trg_name, strnlen(target->trg_name, name_len));
  const void* keys[] = {name};
  return get_trg(task, 1, keys, buffer, length);
}

// The next target that the name filter lets through, or null at the end of the list.
TRG_CNTL_ENTRY* next_by_name(walk& walk) {
  if (walk.at_end()) return nullptr;
  TRG_CNTL_ENTRY* target = walk.take();
  if (walk.prefix_len == 0) return target;
  if (!walk.excluding()) return walk.has_prefix(target) ? target : nullptr;
  // The bound comes before the name: behind a run of excluded names the very last
  // entry of the index is not looked at.
  if (walk.has_prefix(target)) {
    for (;;) {
      if (walk.at_end()) return nullptr;
      if (!walk.has_prefix(target)) break;
      target = walk.take();
    }
  }
  return target;
}

}  // namespace

std::int16_t start_list_trg(void* task, [[maybe_unused]] const void* filter, void* list, std::uint32_t size,
                            std::uint16_t* count) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "start_list_trg", &rc);
  DBR_TCB* tcb = tcb_of(task);
  auto* out = static_cast<unsigned char*>(list);
  const std::uint32_t targets = memory::trg_count(tcb);
  std::uint64_t used = 0;
  for (std::uint32_t position = 0; position < targets; ++position) {
    if (used >= size || *count == 0xFFFF) {
      trace.quitting();
      return rc = DBE_LIST_TOO_SMALL;
    }
    const TRG_CNTL_ENTRY* target = slot_at(tcb, position);
    if (!target) continue;
    // The last name is cut when the area ends within it.
    std::memcpy(out + used, target->trg_name, std::min<std::uint64_t>(name_len, size - used));
    used += name_len;
    ++*count;
  }
  return rc;
}

std::int16_t get_next_trg(void* task, const void* list, const std::uint16_t* index, void* buffer,
                          std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "get_next_trg", &rc);
  char name[name_len + 1] = {};
  const char* entry = static_cast<const char*>(list) + std::size_t{*index} * name_len;
  std::memcpy(name, entry, strnlen(entry, name_len));
  const void* keys[] = {name};
  return rc = get_trg(task, 1, keys, buffer, length);
}

std::int16_t init_list_trg(void* task, void* filter, void* list_state, std::uint32_t size) {
  std::int16_t rc = DBE_OK;
  trace_bracket trace(task, "init_list_trg", &rc);
  if (!filter) {
    trace.quitting();
    return rc = DBE_BAD_RECORD;
  }
  target_list list{};
  rc = set_up_list(task, static_cast<unsigned char*>(filter), list);
  if (size < trg_list_len) {
    ZVR_TRACE(task, 5, 2, "list size %lu too small, required is %lu", static_cast<unsigned long>(size),
              static_cast<unsigned long>(trg_list_len));
    if (rc == DBE_OK) rc = DBE_LIST_TOO_SMALL;
  }
  std::memcpy(list_state, &list, std::min<std::size_t>(size, trg_list_len));
  if (rc != DBE_OK) trace.quitting();
  return rc;
}

std::int16_t get_more_trg(void* task, void* list_state, void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_END_OF_LIST;
  trace_bracket trace(task, "get_more_trg", &rc);
  auto* state = static_cast<unsigned char*>(list_state);
  if (!was_set_up(state)) {
    trace.quitting();
    return rc;
  }
  target_list list;
  load_filters(state, list);
  DBR_TCB* tcb = tcb_of(task);
  // last_entry + 1 is 0 for an empty list.
  walk names{tcb, list, std::min(list.last_entry + 1, memory::trg_count(tcb)),
             strnlen(list.name_filter, name_len)};
  while (TRG_CNTL_ENTRY* target = next_by_name(names)) {
    if (!mode_passes(list, *target) || !type_passes(list, *target) || !os_passes(list, *target) ||
        !server_passes(tcb, list, *target))
      continue;
    rc = read_taken(task, names, target, buffer, length);
    break;
  }
  // Nothing but the places has moved.
  std::memcpy(state + offsetof(target_list, cursor), &list.cursor, sizeof list.cursor);
  std::memcpy(state + offsetof(target_list, scan_cursor), &list.scan_cursor, sizeof list.scan_cursor);
  return rc;
}

}  // namespace zvrdb::targets
