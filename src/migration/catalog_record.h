// The older catalog's records and what becomes of them.
#pragma once

#include <cstdint>

namespace zvrdb::migration {

inline constexpr std::uint32_t older_catalog_len = 1024;
inline constexpr std::uint32_t catalog_len = 2464;

enum class catalog_entry { used, free, corrupt };  // corrupt: free by one of its two marks only
catalog_entry judge_cat_rec(const unsigned char* older);

// Fills the new record (catalog_len bytes) of an entry in use.
void copy_cat_rec(unsigned char* record, const unsigned char* older);
// The new record of any other.
void free_cat_rec(unsigned char* record);

}  // namespace zvrdb::migration
