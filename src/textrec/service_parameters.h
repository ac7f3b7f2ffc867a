// Words of the service parameters of a route.
#pragma once

#include <cstdint>

#include "textrec/keyword_table.h"

namespace zvrdb::textrec {

// In the order of a route line; the first row of each is its default.
inline constexpr unsigned service_parameter_count = 4;
extern const value_word* const service_parameters[service_parameter_count];

// Number of a word, or 255 after logging that it is not known.
std::uint8_t rte_str_to_num(void* task, const value_word* list, const char* text);
// Word of a number; the first row's for one that is not in the list.
const char* rte_num_to_str(void* task, const value_word* list, std::uint8_t number);

namespace routes {
// As rte_str_to_num, telling the fault where it is asked for.
std::uint8_t number_of_word(void* task, const value_word* list, const char* text, const fault_place& place);
}  // namespace routes

}  // namespace zvrdb::textrec
