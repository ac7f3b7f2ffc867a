// An older target group's record and what becomes of it.
#pragma once

#include <cstdint>

namespace zvrdb::migration {

inline constexpr std::uint32_t group_len = 64152;

// Fills the new record (group_len bytes) of an older one (textrec::older_group_len).
void copy_tg_rec(unsigned char* record, const unsigned char* older);

}  // namespace zvrdb::migration
