// What tells the two kinds of groups apart; all else is the same for both.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::users {

struct group_kind {
  std::uint32_t db_id;
  file_entry* DBR_TCB::*file;
  std::uint32_t DBR_CNTL::*count;
  const char* word;  // in messages
};
inline constexpr group_kind static_groups = {DB_TG, &DBR_TCB::tg_file, &DBR_CNTL::num_tg_actual,
                                             "Target Group"};
inline constexpr group_kind dynamic_groups = {DB_DTG, &DBR_TCB::dtg_file, &DBR_CNTL::num_dtg_actual,
                                              "Dynamic Target Group"};

}  // namespace zvrdb::users
