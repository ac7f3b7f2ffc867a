#include "migration/user_records.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "keyed/keyed.h"
#include "memory/heap_sort.h"
#include "memory/shared_tables.h"
#include "memory/trace.h"
#include "migration/field_copy.h"
#include "migration/older_files.h"
#include "textrec/older_tables.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t name_passed_over = 36465;
constexpr std::uint32_t older_count_at = 614;
constexpr std::uint32_t older_users_at = 5800;
constexpr std::uint32_t user_name_len = 16;

constexpr std::uint32_t spare_at = 20;
constexpr std::uint32_t spare_len = 16;
constexpr std::uint32_t description_at = 40;
constexpr std::uint32_t profile_at = 100;
constexpr std::uint32_t tak_at = 116;
constexpr std::uint32_t dak_at = 120;
constexpr std::uint32_t all_targets_at = 124;
constexpr std::uint32_t login_default_at = 208;
constexpr std::uint32_t target_count_at = 210;
constexpr std::uint32_t targets_at = 212;
constexpr std::uint32_t most_targets = 16;
constexpr std::uint32_t config_login_default = 86;

constexpr char begun_mark[] = "users.begun";
constexpr std::uint16_t administrator_level = 2;
constexpr const char* administrator = "Administrator";

using user_name = char[user_name_len + 1];

bool may_stand(const conversion& run, const char* name) {
  for (const char* at = name; *at != 0;) {
    const int length = co_mblen(run.task, at);
    if (length <= 0 || !std::isalnum(static_cast<unsigned char>(*at))) return false;
    at += length;
  }
  return true;
}

const char* profile_of(std::uint16_t level) {
  if (level == administrator_level) return "ZVRADMN";
  return level == 1 ? "ZVRBLD" : "ZVRUSER";
}

void begin_record(const conversion& run, unsigned char* record) {
  user_name name = {};
  std::memcpy(name, record, user_name_len);
  std::uint16_t level = 255;
  co_get_uauth(run.task, name, nullptr, &level);
  constexpr char description[] = "User record built by migration process";
  std::memcpy(record + description_at, description, sizeof description);
  std::memcpy(record + profile_at, profile_of(level), std::strlen(profile_of(level)));
  const std::uint32_t mask = level == administrator_level ? 0xFFFFFFFF : 0;
  store_u32(record + tak_at, mask);
  store_u32(record + dak_at, mask);
  store_u32(record + all_targets_at, std::strcmp(name, administrator) == 0 ? 1 : 0);
  store_u16(record + target_count_at, 0);
  std::memset(record + spare_at, 0, spare_len);
  const auto* config = static_cast<const unsigned char*>(co_croca(run.task, CO_AREA_CONFIG));
  if (config) std::memcpy(record + login_default_at, config + config_login_default, sizeof(std::uint16_t));
}

bool lists(const unsigned char* record, std::uint32_t count, const char* target) {
  for (std::uint32_t i = 0; i < count; ++i)
    if (std::strncmp(reinterpret_cast<const char*>(record) + targets_at + i * memory::trg_name_len, target,
                     memory::trg_name_len) == 0)
      return true;
  return false;
}

// 0; 8455.
std::int16_t make_mark(const conversion& run) {
  file_path path;
  if (!database_path(run.task, begun_mark, path)) return DBE_IO_ERROR;
  step(run);
  std::uint32_t mark = 0;
  if (co_open(run.task, path, CO_OPEN_REPLACE, &mark) != CO_OK) return DBE_IO_ERROR;
  const bool durable = co_fsync(run.task, mark) == CO_OK;
  const bool closed = co_close(run.task, mark) == CO_OK;
  step(run);
  return ok_or(durable && closed, DBE_IO_ERROR);
}

}  // namespace

std::int16_t open_users(const conversion& run, new_file* users) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  older_entry mark;
  older_entry there;
  rc = find_entry(run.task, begun_mark, &mark);
  if (rc == DBE_OK) rc = find_entry(run.task, new_file_name(DB_USR), &there);
  if (rc == DBE_OK && mark.exists && there.exists) rc = remove_new_file(run, DB_USR, there.path);
  const bool anew = mark.exists || !there.exists;
  if (rc == DBE_OK && anew) rc = make_mark(run);
  return rc == DBE_OK ? rc = users->open(DB_USR, anew ? building::anew : building::with_transactions) : rc;
}

std::int16_t end_users(const conversion& run) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  older_entry mark;
  rc = find_entry(run.task, begun_mark, &mark);
  return rc == DBE_OK && mark.exists ? rc = remove_path(run, mark.path) : rc;
}

void update_usr_rec(const conversion& run, unsigned char* record, const char* target, bool is_new) {
  const trace_bracket bracket(run.task, __func__);
  if (is_new) begin_record(run, record);
  if (load_u32(record + all_targets_at) != 0) return;
  const std::uint32_t count = std::min<std::uint32_t>(load_u16(record + target_count_at), most_targets);
  // A conversion that was cut short may have added it before.
  if (lists(record, count, target)) return;
  unsigned char* list = record + targets_at;
  if (count == most_targets) {
    ZVR_TRACE(run.task, 3, 2, "Max login targets reached for user %.16s", reinterpret_cast<const char*>(record));
    store_u32(record + all_targets_at, 1);
    store_u16(record + target_count_at, 0);
    std::memset(list, 0, most_targets * memory::trg_name_len);
    return;
  }
  unsigned char* place = list + count * memory::trg_name_len;
  std::memset(place, 0, memory::trg_name_len);
  std::memcpy(place, target, strnlen(target, memory::trg_name_len - 1));
  store_u16(record + target_count_at, static_cast<std::uint16_t>(count + 1));
}

listed_users::~listed_users() {
  if (list_) co_free_int(run_.task, list_, "add_users");
}

std::int16_t listed_users::keep(const listed& one) {
  constexpr std::uint32_t least_room = 1024;
  if (count_ == room_) {
    const std::uint32_t wanted = std::max(room_ * 2, least_room);
    auto* larger = static_cast<listed*>(
        co_malloc(run_.task, wanted * static_cast<std::uint32_t>(sizeof(listed)), CO_MEM_PRIVATE, "MIG_USR"));
    if (!larger) {
      co_log2(run_.task, 36355, 0, 0, 0, "%s", "MIG_USR");
      return DBE_IO_ERROR;
    }
    if (list_) {
      std::memcpy(larger, list_, count_ * sizeof(listed));
      co_free_int(run_.task, list_, "add_users");
    }
    list_ = larger;
    room_ = wanted;
  }
  list_[count_++] = one;
  return DBE_OK;
}

std::int16_t listed_users::add(const unsigned char* older, std::uint32_t target_number) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run_.task, __func__, &rc);
  const std::uint32_t count = std::min<std::uint32_t>(load_u16(older + older_count_at), textrec::older_user_count);
  for (std::uint32_t i = 0; i < count && rc == DBE_OK; ++i) {
    listed one = {{}, target_number};
    std::memcpy(one.name, older + older_users_at + i * user_name_len, user_name_len);
    if (one.name[0] == 0) continue;  // the count said more than there were
    user_name name = {};
    std::memcpy(name, one.name, user_name_len);
    if (may_stand(run_, name)) {
      rc = keep(one);
      continue;
    }
    ++passed_over_;
    if (!run_.dry_run) co_log2(run_.task, name_passed_over, 0, 0, 0, "%s", name);
    tell_note(run_, name_passed_over, "target %.64s: the user name \"%s\" holds a character that is not allowed",
              reinterpret_cast<const char*>(older), name);
  }
  return rc;
}

std::int16_t listed_users::put_user(new_file* users, const listed* first, const listed* end) {
  unsigned char record[user_len] = {};
  name_key key = {DB_USR, {}, 0};
  std::memcpy(key.name, first->name, sizeof key.name);
  std::int16_t rc = keyed::get_keyed(run_.task, DB_USR, users->handle(), &key, record, sizeof record);
  bool is_new = rc == DBE_NOT_FOUND;
  if (!is_new && !stored(rc)) return DBE_IO_ERROR;
  if (is_new) {
    std::memset(record, 0, sizeof record);
    std::memcpy(record, first->name, sizeof first->name);
  }
  for (const listed* one = first; one != end; ++one) {
    char target[memory::trg_name_len + 1] = {};
    std::memcpy(target, run_.tcb->trg_cntl[one->target_number - 1].trg_name, memory::trg_name_len);
    update_usr_rec(run_, record, target, is_new);
    is_new = false;
  }
  key = {DB_USR, {}, 0};
  std::memcpy(key.name, first->name, sizeof key.name);
  rc = users->put(DB_USR, &key, record, sizeof record);
  return ok_or(stored(rc), DBE_IO_ERROR);
}

std::int16_t listed_users::put(new_file* users) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run_.task, __func__, &rc);
  memory::sort_entries(list_, count_, [](const listed& a, const listed& b) {
    const int compared = std::memcmp(a.name, b.name, sizeof a.name);
    return compared < 0 || (compared == 0 && a.target_number < b.target_number);
  });
  const listed* end = list_ + count_;
  for (const listed* first = list_; first != end && rc == DBE_OK;) {
    const listed* next = first;
    while (next != end && std::memcmp(next->name, first->name, sizeof first->name) == 0) ++next;
    rc = put_user(users, first, next);
    ++users_;
    first = next;
  }
  return rc;
}

}  // namespace zvrdb::migration
