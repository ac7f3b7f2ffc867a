#include "migration/group_record.h"

#include <algorithm>

#include "migration/field_copy.h"
#include "textrec/older_tables.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t older_type_at = 140;
constexpr std::uint32_t older_count_at = 144;
constexpr std::uint32_t older_members_at = 148;
constexpr std::uint8_t older_push = 2;
constexpr std::uint8_t older_pull = 4;
constexpr std::uint8_t older_focal = 8;
constexpr std::uint8_t older_remote = 128;

constexpr std::uint32_t type_at = 144;
constexpr std::uint32_t mode_at = 146;
constexpr std::uint32_t count_at = 148;
constexpr std::uint32_t members_at = 152;
constexpr std::uint32_t member_len = 64;
constexpr std::uint8_t group_type = 64;

constexpr field_move moves[] = {
    {0, 0, 140},   // name, description, short name
    {141, 145, 1}, // operating system
    {146, 150, 2}, // number of TSPs
};

std::uint8_t mode_of(std::uint8_t older_type) {
  if (older_type & older_remote) return older_type & older_focal ? 4 : 2;
  std::uint8_t mode = 16;
  if (older_type & older_pull) mode = 1;
  if (older_type & older_push) mode = 2;
  return mode;
}

}  // namespace

void copy_tg_rec(unsigned char* record, const unsigned char* older) {
  std::memset(record, 0, group_len);
  copy_fields(record, older, moves);
  record[type_at] = group_type;
  record[mode_at] = mode_of(older[older_type_at]);
  const std::uint32_t count =
      std::min<std::uint32_t>(load_u16(older + older_count_at), textrec::older_group_target_count);
  store_u16(record + count_at, static_cast<std::uint16_t>(count));
  std::memcpy(record + members_at, older + older_members_at, count * member_len);
}

}  // namespace zvrdb::migration
