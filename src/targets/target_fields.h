// Fields of a target record by bit and offset, and the key of the records that hang
// on a target.
#pragma once

#include <zvrdb/records.h>

#include <cstddef>
#include <cstdint>

#include "memory/shared_tables.h"

namespace zvrdb::targets {

// trg_type
inline constexpr std::uint8_t type_base = DB_TRG_BASE;
inline constexpr std::uint8_t type_server = DB_TRG_SERVER;
inline constexpr std::uint8_t type_mobile = DB_TRG_MOBILE;
inline constexpr std::uint8_t type_local = DB_TRG_LOCAL;
inline constexpr std::uint8_t type_remote = DB_TRG_REMOTE;

// trg_mode
inline constexpr std::uint8_t mode_focal = DB_MODE_FOCAL;
inline constexpr std::uint8_t mode_focal_point = DB_MODE_FOCAL_POINT;

inline constexpr std::uint8_t os_any = DB_OS_ANY;  // matches every filter

inline constexpr std::uint32_t head_len = sizeof(TRG_CNTL_ENTRY);  // what TRG_CNTL keeps of a record
inline constexpr std::size_t srv_name_offset = offsetof(db_trg, srv_name);
static_assert(srv_name_offset == head_len);
inline constexpr std::size_t name_len = memory::trg_name_len;  // with its NUL

// Key of a target's records in host order; it stands at the head of the stored record.
struct target_key {
  std::uint32_t db_id;
  std::uint32_t number;
  std::uint32_t recnum;
};
static_assert(sizeof(target_key) == 12);

}  // namespace zvrdb::targets
