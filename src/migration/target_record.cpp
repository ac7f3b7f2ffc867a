#include "migration/target_record.h"

#include <algorithm>

#include "memory/shared_tables.h"
#include "migration/field_copy.h"
#include "textrec/older_tables.h"

namespace zvrdb::migration {
namespace {

// Bits of the older type that become the mode.
constexpr std::uint8_t older_push = 2;
constexpr std::uint8_t older_pull = 4;
constexpr std::uint8_t older_focal = 8;
constexpr std::uint8_t older_rtfocal = 16;

// Values and bits of the mode.
constexpr std::uint8_t mode_pull = 1;
constexpr std::uint8_t mode_push = 2;
constexpr std::uint8_t mode_focal = 4;
constexpr std::uint8_t mode_rtfocal = 8;
constexpr std::uint8_t mode_none = 16;

constexpr std::uint8_t remote_base = 132;
constexpr std::uint8_t client = 2;
constexpr std::uint8_t local_client = 34;
constexpr std::uint8_t server = 8;

constexpr std::uint32_t older_type_at = 140;
constexpr std::uint32_t older_hardware_count_at = 612;
constexpr std::uint32_t older_hardware_at = 616;
constexpr std::uint32_t hardware_at = 988;
constexpr std::uint32_t hardware_len_each = 162;
constexpr std::uint32_t block_at = 702;

constexpr field_move moves[] = {
    {0, 0, 140},               // name, description, network name
    {141, target_at::os, 1},
    {144, 148, 19},            // windows, trace, log level, held status
    {164, target_at::status, 4},
    {168, 256, 444},           // addresses and names
};

std::uint8_t without(std::uint8_t bits, std::uint8_t bit) {
  return static_cast<std::uint8_t>(bits & ~bit);
}

}  // namespace

void copy_trg_rec(unsigned char* record, const unsigned char* older) {
  std::memset(record, 0, target_len);
  copy_fields(record, older, moves);
  std::uint8_t type = older[older_type_at];
  if ((type & (type_no_cm | type_remote)) == 0) type |= memory::trg_type_local;
  record[target_at::type] = type;
  const std::uint32_t count =
      std::min<std::uint32_t>(load_u16(older + older_hardware_count_at), textrec::older_hardware_count);
  store_u16(record + target_at::hardware_count, static_cast<std::uint16_t>(count));
  std::memcpy(record + hardware_at, older + older_hardware_at, count * hardware_len_each);
  store_u16(record + block_at, 1);
}

type_and_mode convert_type(std::uint8_t older_type) {
  type_and_mode made = {older_type, mode_none, false};
  if (made.type & older_push) {
    made.mode = mode_push;
    made.type = without(made.type, older_push);
  }
  if (made.type & older_pull) {
    made.mode = mode_pull;
    made.type = without(made.type, older_pull);
  }
  // These two clear the bit below their own, which stays and gets a new meaning.
  if (made.type & older_focal) {
    made.mode = mode_focal;
    made.type = without(made.type, older_pull);
  }
  if (made.type & older_rtfocal) {
    made.mode |= mode_rtfocal;
    made.type = without(made.type, older_focal);
  }
  if ((made.type & (type_remote | type_no_cm)) && !(made.mode & (mode_rtfocal | mode_focal))) {
    made.mode = mode_push;
    made.set_to_push = true;
  }
  return made;
}

std::uint8_t relation_bits(std::uint8_t type, bool has_server, bool own_server) {
  const bool is_remote = (type & type_remote) != 0;
  if (own_server) return is_remote ? server : static_cast<std::uint8_t>(server | memory::trg_type_local);
  if (!has_server) return remote_base;
  return is_remote ? client : local_client;
}

}  // namespace zvrdb::migration
