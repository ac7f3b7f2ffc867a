// Keyword tables of the text files that older versions kept, for their conversion.
#pragma once

#include <cstdint>

#include "textrec/keyword_table.h"

namespace zvrdb::textrec {

inline constexpr std::uint32_t older_key_len = 64;  // name at the head of each record

extern const keyword_entry older_target_keywords[];
extern const keyword_entry older_hardware_keywords[];
extern const keyword_entry older_parameter_keywords[];
extern const keyword_entry older_group_keywords[];

inline constexpr std::uint32_t older_hardware_count = 32;
inline constexpr std::uint32_t older_user_count = 128;
inline constexpr std::uint32_t older_parameter_count = 1000;
inline constexpr std::uint32_t older_group_target_count = 1000;

// Bytes of the records that the tables fill.
inline constexpr std::uint32_t older_target_len = 5800 + older_user_count * 16;
inline constexpr std::uint32_t older_hardware_len = 68 + older_hardware_count * 162;
inline constexpr std::uint32_t older_parameter_len = 68 + older_parameter_count * 62;
inline constexpr std::uint32_t older_group_len = 148 + older_group_target_count * 64;

}  // namespace zvrdb::textrec
