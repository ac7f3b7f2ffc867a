// Fields of a target record by bit and offset, and the key of the records that hang
// on a target.
#pragma once

#include <cstddef>
#include <cstdint>

#include "memory/shared_tables.h"

namespace zvrdb::targets {

// trg_type
inline constexpr std::uint8_t type_no_cm = 1;
inline constexpr std::uint8_t type_client = 2;
inline constexpr std::uint8_t type_base = 4;
inline constexpr std::uint8_t type_server = 8;
inline constexpr std::uint8_t type_mobile = 16;
inline constexpr std::uint8_t type_local = 32;
inline constexpr std::uint8_t type_remote = 128;

// trg_mode
inline constexpr std::uint8_t mode_focal = 4;
inline constexpr std::uint8_t mode_focal_point = 8;

inline constexpr std::uint8_t os_any = 99;  // matches every filter

inline constexpr std::uint32_t head_len = sizeof(TRG_CNTL_ENTRY);  // what TRG_CNTL keeps of a record
inline constexpr std::size_t srv_name_offset = 192;
inline constexpr std::size_t name_len = memory::trg_name_len;  // with its NUL

// Key of a target's records in host order; it stands at the head of the stored record.
struct target_key {
  std::uint32_t db_id;
  std::uint32_t number;
  std::uint32_t recnum;
};
static_assert(sizeof(target_key) == 12);

}  // namespace zvrdb::targets
