// Numbers by which issue_err_msg knows the operation that failed.
#pragma once

#include <cstdint>

namespace zvrdb::recfile {

enum storage_function : std::uint16_t {
  at_open = 1,  // open and create
  at_transroll = 5,
  at_close_or_flush = 6,
  at_read = 7,
  at_insert = 9,
  at_keyval = 10,
  at_lock = 12,
  at_update = 13,
  at_delete = 14,
  at_transbeg = 15,
  at_transend = 16
};

}  // namespace zvrdb::recfile
