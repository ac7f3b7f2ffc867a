#include "textrec/older_tables.h"

#include "textrec/keyword_rows.h"
#include "textrec/parse.h"

namespace zvrdb::textrec {
namespace {

constexpr value_word target_types[] = {
    {"no_cm", 1},        {"pull", 4},     {"push", 2}, {"report_to", 152}, {"focalpoint", 136},
    {"remote", 128},     {"NO_CM", 1},    {"PULL", 4}, {"REPORT_TO", 152}, {"PUSH", 2},
    {"FOCALPOINT", 136}, {"REMOTE", 128}, {"NULL", 0}};
constexpr value_word group_types[] = {{"pull", 68},    {"push", 66}, {"focal", 200}, {"remote", 192},
                                      {"remote", 192}, {"PULL", 68}, {"PUSH", 66},   {"FOCAL", 200},
                                      {"REMOTE", 192}, {"NULL", 0}};
constexpr value_word systems[] = {
    {"MK/6", 0},    {"MK/7", 2},        {"HP_UX", 3},    {"DOS", 4},        {"MAC", 8},         {"NCR", 9},
    {"WINDOWS", 5}, {"WIN2K", 20},      {"WIN98", 19},   {"WIN2K_ADV", 21}, {"OS_UNKNOWN", 24}, {"SUNOS", 6},
    {"SOLARIS", 7}, {"WINDOWS_NT", 11}, {"NETWARE", 10}, {"SCO", 12},       {"NULL", 0}};
constexpr value_word traces[] = {{"none", 0}, {"ui", 1},   {"daca", 2}, {"both", 3}, {"NONE", 0},
                                 {"UI", 1},   {"DACA", 2}, {"BOTH", 3}, {"NULL", 0}};
constexpr value_word log_levels[] = {{"D", 2}, {"d", 2}, {"N", 1}, {"n", 1}, {"M", 0}, {"m", 0}, {"NULL", 0}};
constexpr value_word held_words[] = {{"HELD", 1}, {"held", 1}, {"RELEASED", 0}, {"released", 0}, {"NULL", 0}};

}  // namespace

constexpr keyword_entry older_target_keywords[] = {
    value_row("DESCRIPTION", KIND_STRING, {60, 64}),
    value_row("TARGET TYPE", KIND_WORD, {1, 140}, target_types),
    value_row("TARGET OS", KIND_WORD, {1, 141}, systems),
    value_row("NETWORK ID", KIND_NAME, {8, 124}),
    value_row("SHORT NAME", KIND_NAME, {8, 132}),
    special_row("CM WINDOW START", {4, 144}, dva_time_parse),
    special_row("CM WINDOW STOP", {4, 148}, dva_time_parse),
    special_row("DISTRIBUTION WINDOW START", {4, 152}, dva_time_parse),
    special_row("DISTRIBUTION WINDOW STOP", {4, 156}, dva_time_parse),
    value_row("RBAPI TRACE", KIND_WORD, {1, 160}, traces),
    value_row("LOG LEVEL", KIND_WORD, {1, 161}, log_levels),
    value_row("HELD STATUS", KIND_WORD, {1, 162}, held_words),
    value_row("LAN ADDRESS", KIND_STRING, {32, 168}),
    value_row("CUSTOMER NAME", KIND_STRING, {60, 200}),
    value_row("CONTACT NAME", KIND_STRING, {60, 260}),
    value_row("CONTACT PHONE", KIND_STRING, {32, 320}),
    value_row("MANAGER NAME", KIND_STRING, {60, 352}),
    special_row("MANAGER ADDRESS", {200, 412}, addr_prs),
    value_row("NUMBER OF PARMS", KIND_USHORT, {2, 612}),
    value_row("NUMBER OF USERS", KIND_USHORT, {2, 614}),
    repeated_row("HARDWARE PARMS", special_kind, {162, 616}, {older_hardware_count, 1}, hw_parm),
    repeated_row("USER", KIND_STRING, {16, 5800}, {older_user_count, 2}),
    end_row(),
};
static_assert(table_is_sound(older_target_keywords, older_target_len));

constexpr keyword_entry older_hardware_keywords[] = {
    value_row("NUMBER OF PARMS", KIND_USHORT, {2, 64}),
    repeated_row("HARDWARE PARMS", special_kind, {162, 68}, {older_hardware_count, 1}, hw_parm),
    end_row(),
};
static_assert(table_is_sound(older_hardware_keywords, older_hardware_len));

constexpr keyword_entry older_parameter_keywords[] = {
    value_row("NUMBER OF PARMS", KIND_USHORT, {2, 64}),
    catch_all_row({62, 68}, {older_parameter_count, 3}, prm_prs),
    end_row(),
};
static_assert(table_is_sound(older_parameter_keywords, older_parameter_len));

constexpr keyword_entry older_group_keywords[] = {
    value_row("DESCRIPTION", KIND_STRING, {60, 64}),
    value_row("TARGET TYPE", KIND_WORD, {1, 140}, group_types),
    value_row("TARGET OS", KIND_WORD, {1, 141}, systems),
    value_row("SHORT NAME", KIND_NAME, {8, 132}),
    repeated_row("TARGET", KIND_STRING, {64, 148}, {older_group_target_count, 8}),
    value_row("NUMBER OF TARGETS", KIND_USHORT, {2, 144}),
    value_row("NUMBER OF TSPS", KIND_USHORT, {2, 146}),
    end_row(),
};
static_assert(table_is_sound(older_group_keywords, older_group_len));

}  // namespace zvrdb::textrec
