#include "textrec/service_parameters.h"

#include <cstring>

#include "memory/trace.h"
#include "textrec/parse_faults.h"

namespace zvrdb::textrec {
namespace {

constexpr std::uint8_t unknown_parameter = 255;

constexpr value_word priorities[] = {{"ANY", 255},    {"FAST", 240},   {"CONTROL", 208}, {"DATA16", 128},
                                     {"DATA15", 120}, {"DATA14", 112}, {"DATA13", 104},  {"DATA12", 96},
                                     {"DATA11", 88},  {"DATA10", 80},  {"DATA9", 72},    {"DATA8", 64},
                                     {"DATA7", 56},   {"DATA6", 48},   {"DATA5", 40},    {"DATA4", 32},
                                     {"DATA3", 24},   {"DATA2", 16},   {"DATA1", 8},     {"NULL", 0}};
constexpr value_word protections[] = {{"ANY", 255}, {"LEVEL2", 48}, {"NULL", 0}};
constexpr value_word capacities[] = {{"ANY", 255},       {"0DATA", 0},        {"1MEGABYTE", 20},
                                     {"4MEGABYTES", 22}, {"16MEGABYTES", 24}, {"NULL", 0}};
constexpr value_word securities[] = {{"ANY", 255}, {"LEVEL2", 32}, {"NULL", 0}};

bool is_last(const value_word* row) {
  return std::strcmp(row->text, "NULL") == 0;
}

}  // namespace

const value_word* const service_parameters[service_parameter_count] = {priorities, protections, capacities,
                                                                       securities};

namespace routes {

std::uint8_t number_of_word(void* task, const value_word* list, const char* text, const fault_place& place) {
  for (const value_word* row = list; !is_last(row); ++row)
    if (std::strcmp(row->text, text) == 0) return static_cast<std::uint8_t>(row->number);
  tell_fault(task, place, unknown_keyword, "%s|%s|%hd", text, "", short{1});
  return unknown_parameter;
}

}  // namespace routes

std::uint8_t rte_str_to_num(void* task, const value_word* list, const char* text) {
  const trace_bracket bracket(task, __func__);
  return routes::number_of_word(task, list, text, fault_place{});
}

const char* rte_num_to_str(void* task, const value_word* list, std::uint8_t number) {
  const trace_bracket bracket(task, __func__);
  for (const value_word* row = list; !is_last(row); ++row)
    if (row->number == number) return row->text;
  return list->text;
}

}  // namespace zvrdb::textrec
