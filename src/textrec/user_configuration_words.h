// Words of the rights in the user configuration, in lower case and then in upper case.
#pragma once

#include "textrec/keyword_table.h"

namespace zvrdb::textrec {

inline constexpr value_word right_words[] = {{"none", 0}, {"view", 1},   {"modify", 2}, {"NONE", 0},
                                             {"VIEW", 1}, {"MODIFY", 2}, {"NULL", 0}};
inline constexpr value_word cm_words[] = {
    {"none", 0},      {"install", 1},        {"execute", 2},        {"inst&exec", 3},
    {"authorise", 4}, {"inst&auth", 5},      {"exec&auth", 6},      {"inst&exec&auth", 7},
    {"activate", 8},  {"inst&act", 9},       {"exec&act", 10},      {"inst&exec&act", 11},
    {"auth&act", 12}, {"inst&auth&act", 13}, {"exec&auth&act", 14}, {"all", 15},
    {"NONE", 0},      {"INSTALL", 1},        {"EXECUTE", 2},        {"INST&EXEC", 3},
    {"AUTHORISE", 4}, {"INST&AUTH", 5},      {"EXEC&AUTH", 6},      {"INST&EXEC&AUTH", 7},
    {"ACTIVATE", 8},  {"INST&ACT", 9},       {"EXEC&ACT", 10},      {"INST&EXEC&ACT", 11},
    {"AUTH&ACT", 12}, {"INST&AUTH&ACT", 13}, {"EXEC&AUTH&ACT", 14}, {"ALL", 15},
    {"NULL", 0}};
inline constexpr value_word dist_words[] = {{"none", 0},     {"send", 1}, {"retrieve", 2},
                                            {"all", 3},      {"NONE", 0}, {"SEND", 1},
                                            {"RETRIEVE", 2}, {"ALL", 3},  {"NULL", 0}};
inline constexpr value_word scope_words[] = {
    {"all", 0}, {"own_target", 1}, {"ALL", 0}, {"OWN_TARGET", 1}, {"NULL", 0}};

}  // namespace zvrdb::textrec
