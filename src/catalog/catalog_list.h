// The walk behind start_list_cat, with what it cost.
#pragma once

#include <cstdint>

namespace zvrdb::catalog {

struct list_cost {
  std::uint32_t filter_tests = 0;  // names that were matched against the filter
  std::uint32_t prefix_tests = 0;  // names that were compared with its fixed part
};

// As start_list_cat; adds to the cost.
std::int16_t list_matches(void* task, const void* filter, void* list, std::uint32_t size,
                          std::uint16_t* count, list_cost* cost);

}  // namespace zvrdb::catalog
