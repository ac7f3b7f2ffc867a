// The users that older targets list.
#pragma once

#include "migration/conversion.h"
#include "migration/new_files.h"

namespace zvrdb::migration {

struct user_counts {
  std::uint32_t made = 0;
  std::uint32_t passed_over = 0;
};

// Adds the target to the record of each user that its older record lists. 0 or 8455.
std::int16_t add_users(const conversion& run, new_file* users, const unsigned char* older, user_counts* counts);

// Fills (`is_new`) and brings up to date a user's record of user_len bytes whose name is in
// place: the target joins the list, which becomes "all targets" when it is full. A target
// that the list has already is not added again.
inline constexpr std::uint32_t user_len = 1236;
void update_usr_rec(const conversion& run, unsigned char* record, const char* target, bool is_new);

}  // namespace zvrdb::migration
