#include "record_fields.h"

#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

#include "refusals.h"

namespace zvradm {

namespace {

using enum field_kind;

// ---- words

constexpr std::array type_words{word{"NO_CM", DB_TRG_NO_CM},   word{"CLIENT", DB_TRG_CLIENT},
                                word{"BASE", DB_TRG_BASE},     word{"SERVER", DB_TRG_SERVER},
                                word{"MOBILE", DB_TRG_MOBILE}, word{"LOCAL", DB_TRG_LOCAL},
                                word{"REMOTE", DB_TRG_REMOTE}};
constexpr std::array mode_words{word{"PULL", DB_MODE_PULL}, word{"PUSH", DB_MODE_PUSH},
                                word{"FOCAL", DB_MODE_FOCAL}, word{"RTFOCAL", DB_MODE_FOCAL_POINT},
                                word{"NONE", DB_MODE_NONE}};
constexpr std::array system_words{word{"MK/6", DB_OS_MK6},
                                  word{"MK/7", DB_OS_MK7},
                                  word{"HP_UX", DB_OS_HP_UX},
                                  word{"DOS", DB_OS_DOS},
                                  word{"WINDOWS", DB_OS_WINDOWS},
                                  word{"SUNOS", DB_OS_SUNOS},
                                  word{"SOLARIS", DB_OS_SOLARIS},
                                  word{"MAC", DB_OS_MAC},
                                  word{"NCR", DB_OS_NCR},
                                  word{"NETWARE", DB_OS_NETWARE},
                                  word{"WINDOWS_NT", DB_OS_WINDOWS_NT},
                                  word{"SCO", DB_OS_SCO},
                                  word{"WIN98", DB_OS_WIN98},
                                  word{"WIN2K", DB_OS_WIN2K},
                                  word{"WIN2K_ADV", DB_OS_WIN2K_ADV},
                                  word{"OS_UNKNOWN", DB_OS_UNKNOWN},
                                  word{"ANY", DB_OS_ANY}};
constexpr std::array machine_words{word{"MK/6", DB_OS_MK6},
                                   word{"MK/7", DB_OS_MK7},
                                   word{"HP_UX", DB_OS_HP_UX},
                                   word{"DOS", DB_OS_DOS},
                                   word{"WINDOWS", DB_OS_WINDOWS},
                                   word{"SUNOS", DB_OS_SUNOS},
                                   word{"SOLARIS", DB_OS_SOLARIS},
                                   word{"MAC", DB_OS_MAC},
                                   word{"NCR", DB_OS_NCR},
                                   word{"NETWARE", DB_OS_NETWARE},
                                   word{"WINDOWS_NT", DB_OS_WINDOWS_NT},
                                   word{"SCO", DB_OS_SCO},
                                   word{"SINIX", 13},
                                   word{"MK/900", 14},
                                   word{"IRIX", 16},
                                   word{"MK/8", 17},
                                   word{"WIN95", 18},
                                   word{"WIN98", DB_OS_WIN98},
                                   word{"WIN2K", DB_OS_WIN2K},
                                   word{"WIN2K_ADV", DB_OS_WIN2K_ADV},
                                   word{"OS_UNKNOWN", DB_OS_UNKNOWN}};
constexpr std::array kind_words{word{"CLIENT", DB_CFG_CLIENT},
                                word{"BASE", DB_CFG_BASE},
                                word{"SERVER_NO_COMMS", DB_CFG_SERVER_NO_COMMS},
                                word{"SERVER_WITH_COMMS", DB_CFG_SERVER_WITH_COMMS},
                                word{"REMOTE_ADMIN_SERVER", DB_CFG_REMOTE_ADMIN_SERVER},
                                word{"REMOTE_ADMIN_BASE", DB_CFG_REMOTE_ADMIN_BASE}};
constexpr std::array rbapi_words{word{"none", 0}, word{"ui", 1}, word{"daca", 2}, word{"both", 3}};
constexpr std::array log_level_words{word{"M", 0}, word{"N", 1}, word{"D", 2}};
constexpr std::array held_words{word{"RELEASED", 0}, word{"HELD", 1}};
constexpr std::array authorize_words{word{"NONE", 0}, word{"ALL", 1}};
constexpr std::array flag_words{word{"NO", 0}, word{"YES", 1}};
constexpr std::array plan_words{word{"N", 0}, word{"Y", 1}};
constexpr std::array cf_flag_words{word{"DEFAULT_STATUS", 32}};
constexpr std::array access_words{word{"NONE", 0}, word{"VIEW", 1}, word{"MODIFY", 2}};
constexpr std::array dist_right_words{word{"NONE", 0}, word{"SEND", 1}, word{"RETRIEVE", 2}, word{"ALL", 3}};
constexpr std::array target_right_words{word{"ALL", 0}, word{"OWN_TARGET", 1}};
// Bits 1 install, 2 execute, 4 authorise, 8 activate; each set of them has a word of its own.
constexpr std::array cm_right_words{
    word{"NONE", 0},      word{"INSTALL", 1},        word{"EXECUTE", 2},        word{"INST&EXEC", 3},
    word{"AUTHORISE", 4}, word{"INST&AUTH", 5},      word{"EXEC&AUTH", 6},      word{"INST&EXEC&AUTH", 7},
    word{"ACTIVATE", 8},  word{"INST&ACT", 9},       word{"EXEC&ACT", 10},      word{"INST&EXEC&ACT", 11},
    word{"AUTH&ACT", 12}, word{"INST&AUTH&ACT", 13}, word{"EXEC&AUTH&ACT", 14}, word{"ALL", 15}};
constexpr std::array cfg_mode_words{word{"PULL", 1}, word{"PUSH", 2}};

constexpr std::array scn_protocol_words{word{"APPC", DB_SCN_APPC}, word{"TCP/IP", DB_SCN_TCPIP},
                                        word{"IPX", DB_SCN_IPX}, word{"NBI", DB_SCN_NBI}};
constexpr std::array scn_type_words{word{"SNA", 1}, word{"STS", 2}};
constexpr std::array network_words{word{"APPC", 1}, word{"TCP/IP", 2}, word{"BOTH", 3}};
constexpr std::array priority_words{
    word{"ANY", 255},    word{"FAST", 240},   word{"CONTROL", 208}, word{"DATA16", 128}, word{"DATA15", 120},
    word{"DATA14", 112}, word{"DATA13", 104}, word{"DATA12", 96},   word{"DATA11", 88},  word{"DATA10", 80},
    word{"DATA9", 72},   word{"DATA8", 64},   word{"DATA7", 56},    word{"DATA6", 48},   word{"DATA5", 40},
    word{"DATA4", 32},   word{"DATA3", 24},   word{"DATA2", 16},    word{"DATA1", 8}};
constexpr std::array protection_words{word{"ANY", 255}, word{"LEVEL2", 48}};
constexpr std::array capacity_words{word{"ANY", 255}, word{"0DATA", 0}, word{"1MEGABYTE", 20},
                                    word{"4MEGABYTES", 22}, word{"16MEGABYTES", 24}};
constexpr std::array security_words{word{"ANY", 255}, word{"LEVEL2", 32}};
constexpr std::array cm_bit_words{word{"INSTALL", 1}, word{"EXECUTE", 2}, word{"AUTHORISE", 4},
                                  word{"ACTIVATE", 8}};

// ---- rows

constexpr field words_row(const char* name, std::uint32_t offset, std::uint32_t width,
                          std::span<const word> words, std::uint8_t traits = plain) {
  return {.name = name,
          .alias = nullptr,
          .offset = offset,
          .width = width,
          .kind = number,
          .traits = traits,
          .words = words};
}

constexpr field row(const char* name, std::uint32_t offset, std::uint32_t width, field_kind kind,
                    std::uint8_t traits = plain) {
  return {.name = name, .alias = nullptr, .offset = offset, .width = width, .kind = kind, .traits = traits};
}

constexpr field list_row(const char* name, const char* alias, std::uint32_t offset, std::uint32_t width,
                         std::span<const field> elements, std::uint32_t capacity, std::int64_t count_at,
                         std::uint8_t traits = plain) {
  return {.name = name,
          .alias = alias,
          .offset = offset,
          .width = width,
          .kind = list,
          .traits = traits,
          .words = {},
          .elements = elements,
          .capacity = capacity,
          .count_at = count_at};
}

// Name, place and width of a field as the public layouts have them.
#define ROW(record, member, ...) row(#member, offsetof(record, member), sizeof(record::member), __VA_ARGS__)
#define WORDS(record, member, ...) \
  words_row(#member, offsetof(record, member), sizeof(record::member), __VA_ARGS__)
#define LIST(record, member, alias, elements, ...)                                        \
  list_row(#member, alias, offsetof(record, member), sizeof(record::member[0]), elements, \
           static_cast<std::uint32_t>(sizeof(record::member) / sizeof(record::member[0])), __VA_ARGS__)

constexpr std::array hardware_parameter{ROW(db_hw_parm, name, text), ROW(db_hw_parm, value, text)};
constexpr std::array parameter{ROW(db_parm, name, text), ROW(db_parm, value, text)};
constexpr std::array named_server{ROW(db_cfg_server, name, text), ROW(db_cfg_server, carried64, hex)};

constexpr std::array trg_fields{
    ROW(db_trg, trg_name, text, column | needed),
    ROW(db_trg, description, text, column),
    ROW(db_trg, rgn, full_text, column),
    ROW(db_trg, ren, full_text, column),
    ROW(db_trg, carried140, hex),
    WORDS(db_trg, trg_type, type_words, bit_set | column),
    WORDS(db_trg, trg_os, system_words, column),
    WORDS(db_trg, trg_mode, mode_words, bit_set | column),
    ROW(db_trg, mob_conn_stat, number),
    ROW(db_trg, cm_window_start, number),
    ROW(db_trg, cm_window_stop, number),
    ROW(db_trg, dist_window_start, number),
    ROW(db_trg, dist_window_stop, number),
    WORDS(db_trg, rbapi_trace, rbapi_words),
    WORDS(db_trg, log_level, log_level_words),
    WORDS(db_trg, held_status, held_words),
    ROW(db_trg, in_use, number, live),
    ROW(db_trg, carried168, text),
    ROW(db_trg, trg_status, hex, live),
    ROW(db_trg, srv_num, number, live),
    ROW(db_trg, srv_name, text, column | looked_up),
    ROW(db_trg, lan_address, text, column),
    ROW(db_trg, customer_name, text),
    ROW(db_trg, contact_name, text),
    ROW(db_trg, contact_phone, text),
    ROW(db_trg, manager_name, text),
    ROW(db_trg, manager_address, text),
    ROW(db_trg, carried702, hex),
    LIST(db_trg, hw_parms, nullptr, hardware_parameter, offsetof(db_trg, num_hw_parms)),
};

constexpr std::array prm_fields{
    ROW(db_prm, trg_name, text, column | needed),
    LIST(db_prm, parms, "entries", parameter, offsetof(db_prm, num_parms), column),
};
constexpr std::array thw_fields{
    ROW(db_thw, trg_name, text, column | needed),
    LIST(db_thw, hw_parms, "entries", hardware_parameter, offsetof(db_thw, num_hw_parms)),
};

constexpr std::array ua_fields{
    row("user_name", 0, 16, full_text, column),
    row("second_name", 16, 16, full_text, column),
    row("selector", 32, 1, number, column),
    row("level", 33, 1, number, column),
};

constexpr std::array target_name{row(nullptr, 0, sizeof(db_trg::trg_name), text)};
constexpr std::array text_line{row(nullptr, 0, sizeof(db_cat::lines[0]), text)};

constexpr std::array cat_fields{
    ROW(db_cat, cf_name, change_file, column | needed),
    ROW(db_cat, carried76, number, column),
    ROW(db_cat, carried80, hex),
    ROW(db_cat, carried84, number, column),
    ROW(db_cat, carried86, hex),
    ROW(db_cat, carried88, number, column),
    ROW(db_cat, carried90, number, column),
    ROW(db_cat, carried91, number, column),
    ROW(db_cat, carried92, hex),
    ROW(db_cat, text102, text, column),
    ROW(db_cat, text346, text),
    ROW(db_cat, carried350, number),
    ROW(db_cat, carried352, number),
    ROW(db_cat, carried354, hex),
    ROW(db_cat, carried356, number),
    WORDS(db_cat, cf_flags, cf_flag_words, bit_set | column),
    ROW(db_cat, carried361, hex),
    LIST(db_cat, lines, nullptr, text_line, -1),
    ROW(db_cat, carried2412, hex),
    ROW(db_cat, carried2462, number),
};
constexpr std::array prd_fields{
    ROW(db_prd_key, cf_name, change_file, column | needed),
    ROW(db_prd_key, product_id, number, column | needed),
    ROW(db_prd, text80, text, column),
    ROW(db_prd, text225, text, column),
    ROW(db_prd, text290, text, column),
    ROW(db_prd, text355, text, column),
    ROW(db_prd, text420, text, column),
    ROW(db_prd, carried680, number, column),
};
constexpr std::array fst_fields{
    ROW(db_prd_key, cf_name, change_file, column | needed),
    ROW(db_prd_key, product_id, number, column | needed),
    ROW(db_prd_key, fileset_id, number, column | needed),
    ROW(db_fst, text80, text, column),
    ROW(db_fst, text225, text, column),
    ROW(db_fst, text290, text, column),
};
constexpr std::array cms_fields{
    ROW(db_cms, trg_name, text, column | needed),
    ROW(db_cms, cf_name, change_file, column | needed),
    ROW(db_cms, cm_status, number, column | needed),
    ROW(db_cms, carried141, hex, live),
    ROW(db_cms, cm_details, hex, column),
};

constexpr std::array usr_fields{
    ROW(db_usr, usr_name, full_text, column | needed),
    ROW(db_usr, deleted, number, live),
    ROW(db_usr, carried20, hex),
    ROW(db_usr, description, text, column),
    ROW(db_usr, profile, full_text, column),
    ROW(db_usr, tak_mask, number, column),
    ROW(db_usr, dak_mask, number, column),
    WORDS(db_usr, all_targets, flag_words, column),
    ROW(db_usr, last_seqno, number, column),
    ROW(db_usr, carried132, hex),
    ROW(db_usr, login_default, number),
    LIST(db_usr, login_trgs, nullptr, target_name, offsetof(db_usr, num_login_trgs), targets),
};
constexpr std::array apr_fields{
    ROW(db_apr, name, full_text, column | needed),
    WORDS(db_apr, config, access_words, column),
    WORDS(db_apr, prep, access_words, column),
    WORDS(db_apr, cm, cm_right_words, column),
    WORDS(db_apr, dist, dist_right_words, column),
    WORDS(db_apr, tcq, access_words, column),
    WORDS(db_apr, system, access_words, column),
    WORDS(db_apr, target, target_right_words, column),
    ROW(db_apr, carried23, number),
    ROW(db_apr, carried24, number),
    ROW(db_apr, carried25, hex),
};
constexpr std::array access_key{ROW(db_access_key, name, full_text), ROW(db_access_key, mask, number),
                                ROW(db_access_key, description, full_text)};
constexpr std::array ak_fields{LIST(db_ak, keys, nullptr, access_key, -1)};
constexpr std::array tg_fields{
    ROW(db_tg, name, full_text, column | needed),
    ROW(db_tg, description, text, column),
    ROW(db_tg, carried124, hex),
    ROW(db_tg, short_name, full_text, column),
    ROW(db_tg, carried140, hex),
    row("group_type", offsetof(db_tg, type), 1, number, column),  // "type" names the record type
    WORDS(db_tg, os, system_words, column),
    WORDS(db_tg, mode, mode_words, bit_set | column),
    ROW(db_tg, carried147, number),
    ROW(db_tg, num_tsps, number),
    LIST(db_tg, members, nullptr, target_name, offsetof(db_tg, num_members), targets),
};
constexpr std::array dtg_fields{
    ROW(db_dtg, name, full_text, column | needed),
    ROW(db_dtg, description, text, column),
    ROW(db_dtg, carried124, hex),
    ROW(db_dtg, short_name, full_text, column),
    ROW(db_dtg, carried140, hex),
    row("group_type", offsetof(db_dtg, type), 1, number, column),
    WORDS(db_dtg, os, system_words, column),
    WORDS(db_dtg, mode, mode_words, bit_set | column),
    ROW(db_dtg, carried147, number),
    ROW(db_dtg, num_tsps, number),
    ROW(db_dtg, carried152, hex),
    ROW(db_dtg, selection, text, column),
    LIST(db_dtg, members, nullptr, target_name, offsetof(db_dtg, num_members), targets),
};

constexpr std::array cfg_fields{
    ROW(db_cfg, workstation_name, text, column | needed),
    WORDS(db_cfg, message_log_level, log_level_words),
    ROW(db_cfg, lan_authorization, number),
    ROW(db_cfg, log_file_size, number),
    ROW(db_cfg, api_trace_file_size, number),
    ROW(db_cfg, trace_file_size, number),
    ROW(db_cfg, tcpip_port, number),
    ROW(db_cfg, file_system, number),
    WORDS(db_cfg, machine_type, machine_words, column),
    WORDS(db_cfg, configuration, kind_words, column),
    ROW(db_cfg, max_attempts, number),
    ROW(db_cfg, file_path, text),
    ROW(db_cfg, repository, text),
    ROW(db_cfg, service_area, text),
    ROW(db_cfg, backup_area, text),
    ROW(db_cfg, work_area, text),
    LIST(db_cfg, servers, nullptr, named_server, -1),
    ROW(db_cfg, carried3118, hex),
    ROW(db_cfg, max_connections, number),
    ROW(db_cfg, max_targets, number, column | needed),
    ROW(db_cfg, max_user_interfaces, number),
    WORDS(db_cfg, authorize, authorize_words),
    WORDS(db_cfg, automatic_client_upgrade, flag_words),
    WORDS(db_cfg, target_password_authentication, flag_words),
    ROW(db_cfg, carried4279, hex),
    ROW(db_cfg, max_requests, number),
    ROW(db_cfg, max_local_targets, number, column | needed),
    ROW(db_cfg, max_server_connections, number),
    ROW(db_cfg, max_sts, number),
    ROW(db_cfg, daca_idle_time, number),
    ROW(db_cfg, daca_retry_time, number),
    ROW(db_cfg, sts_idle_time, number),
    ROW(db_cfg, sts_retry_time, number),
    ROW(db_cfg, inventory_program, text),
    ROW(db_cfg, max_server_targets, number, column | needed),
    ROW(db_cfg, max_snads_routes, number),
    ROW(db_cfg, max_sts_routes, number),
    WORDS(db_cfg, plan_feature, plan_words),
    WORDS(db_cfg, automatic_target_registration, flag_words),
    WORDS(db_cfg, automatic_target_inventory, flag_words),
    WORDS(db_cfg, target_mode, cfg_mode_words),
    ROW(db_cfg, target_address, text),
    WORDS(db_cfg, extend_file_system_on_store, flag_words),
    ROW(db_cfg, os_user, text),
    WORDS(db_cfg, automatic_target_info_update, flag_words),
    WORDS(db_cfg, automatic_target_deletion, flag_words),
    ROW(db_cfg, carried4612, hex),
    WORDS(db_cfg, kestra_alert, flag_words),
    ROW(db_cfg, carried4625, hex),
    ROW(db_cfg, connection_window_duration, number),
};

// The head of each record of requests.
#define REQUEST_ROWS                                                                                   \
  ROW(db_rqr_id, user, full_text, column | needed), ROW(db_rqr_id, src_domain, text, column | needed), \
      ROW(db_rqr_id, seq_no, number, column | needed), ROW(db_rqr_id, recursion_no, number, column)
#define FUNCTION_ROWS REQUEST_ROWS, ROW(db_rqf_id, subreq_id, full_text, column)
#define DOMAIN_ROWS FUNCTION_ROWS, ROW(db_rqd_id, domain, text, column | needed)

constexpr std::array report_words{word{"NONE", 0xFFFF}, word{"TEXT", 1}};

constexpr std::array rqr_fields{
    REQUEST_ROWS,
    row("carried88", 88, 2, number),
    row("text90", 90, 256, text),
    row("carried348", 348, 3242, hex),
    row("carried3590", 3590, 2, number),
    row("carried3592", 3592, 630, hex),
};
constexpr std::array rqf_fields{
    FUNCTION_ROWS,
    row("carried104", 104, 4276, hex),
    row("text4380", 4380, 258, text),
    row("carried4638", 4638, 5566, hex),
};
constexpr std::array fan_fields{
    FUNCTION_ROWS,
    ROW(db_fan_id, rgn, full_text, column),
    ROW(db_fan_id, ren, full_text, column),
    row("carried120", 120, 4, hex),
    row("block_length", 124, 2, number),
    row("carried126", 126, 512, hex),
    row("block", 638, 24560, hex),
};
constexpr std::array rqd_fields{
    DOMAIN_ROWS,
    row("carried168", 168, 4, hex),
    row("text172", 172, 256, text),
    row("carried428", 428, 40, hex),
    row("carried9692", 9692, 512, hex),
};
constexpr std::array rqt_fields{
    DOMAIN_ROWS,
    ROW(db_rqt_id, target, text, column | needed),
    row("carried232", 232, 4, hex),
    row("text236", 236, 256, text),
    row("carried492", 492, 28, hex),
    words_row("report_type", 520, 2, report_words),
    row("carried522", 522, 34, hex),
    row("report_text", 556, 1024, text),
    row("carried9692", 9692, 512, hex),
};
// The area at 9692 lies in the vector, which goes over it when it is long enough.
constexpr std::array rqv_fields{
    FUNCTION_ROWS,
    row("vector_length", 616, 4, number),
    row("vector", 620, 64000, hex),
};
constexpr std::array coo_fields{
    FUNCTION_ROWS,
    ROW(db_coo, origin, full_text, column),
    ROW(db_coo, year, number, column),
    ROW(db_coo, month, number, column),
    ROW(db_coo, day, number, column),
    ROW(db_coo, hour, number, column),
    ROW(db_coo, minute, number, column),
    ROW(db_coo, second, number, column),
    ROW(db_coo, gmt_flag, number),
    ROW(db_coo, sequence, number, column),
    ROW(db_coo, num_mangled, number),
};
#undef REQUEST_ROWS
#undef FUNCTION_ROWS
#undef DOMAIN_ROWS
constexpr std::array scn_fields{
    ROW(db_scn, connection, full_text, column | needed),
    WORDS(db_scn, protocol, scn_protocol_words, column),
    WORDS(db_scn, connection_type, scn_type_words, column),
    ROW(db_scn, send_tp, text),
    ROW(db_scn, receive_tp, text),
    ROW(db_scn, next_rgn, full_text, column),
    ROW(db_scn, next_ren, full_text, column),
    ROW(db_scn, transmission_time_out, number),
    ROW(db_scn, retry_limit, number),
    ROW(db_scn, send_mu_id_time_out, number),
    ROW(db_scn, receive_mu_id_time_out, number),
    ROW(db_scn, remote_server, text, column),
    ROW(db_scn, tcpip_time_out, number),
};
constexpr std::array scf_fields{
    ROW(db_scf, origin_hop_count, number, column),
    ROW(db_scf, max_crmu, number, column),
    ROW(db_scf, transmission_hold_time, number, column),
    ROW(db_scf, allocation_failure_retry_time, number, column),
};
constexpr std::array route_fields{
    ROW(db_route, rgn, full_text),
    ROW(db_route, ren, full_text),
    WORDS(db_route, priority, priority_words),
    WORDS(db_route, protection, protection_words),
    WORDS(db_route, capacity, capacity_words),
    WORDS(db_route, security, security_words),
    ROW(db_route, connection, text),
    ROW(db_route, hop_count, number),
};
constexpr std::array rte_fields{
    WORDS(db_rte, network_protocol, network_words, column),
    LIST(db_rte, routes, nullptr, route_fields, offsetof(db_rte, num_routes)),
};
constexpr std::array ucf_fields{
    words_row("config_user", 0, 1, access_words),        words_row("prep_user", 1, 1, access_words),
    words_row("cm_user", 2, 1, cm_bit_words, bit_set),   words_row("dist_user", 3, 1, dist_right_words),
    words_row("tcq_user", 4, 1, access_words),           words_row("system_user", 5, 1, access_words),
    words_row("target_user", 6, 1, target_right_words),  words_row("config_prep", 8, 1, access_words),
    words_row("prep_prep", 9, 1, access_words),          words_row("cm_prep", 10, 1, cm_bit_words, bit_set),
    words_row("dist_prep", 11, 1, dist_right_words),     words_row("tcq_prep", 12, 1, access_words),
    words_row("system_prep", 13, 1, access_words),       words_row("target_prep", 14, 1, target_right_words),
    words_row("config_admn", 16, 1, access_words),       words_row("prep_admn", 17, 1, access_words),
    words_row("cm_admn", 18, 1, cm_bit_words, bit_set),  words_row("dist_admn", 19, 1, dist_right_words),
    words_row("tcq_admn", 20, 1, access_words),          words_row("system_admn", 21, 1, access_words),
    words_row("target_admn", 22, 1, target_right_words),
};

#undef ROW
#undef WORDS
#undef LIST

// No two rows overlap, all lie within the record, counts included.
template <std::size_t N>
constexpr bool rows_fit(const std::array<field, N>& rows, std::uint32_t length) {
  std::uint32_t end = 0;
  for (const field& f : rows) {
    const std::uint32_t bytes = f.kind == list ? f.width * f.capacity : f.width;
    if (f.offset < end || f.offset + bytes > length) return false;
    if (f.kind == number && f.width != 1 && f.width != 2 && f.width != 4) return false;
    if (f.count_at >= 0 && f.count_at + 2 > static_cast<std::int64_t>(length)) return false;
    end = f.offset + bytes;
  }
  return true;
}
static_assert(rows_fit(trg_fields, sizeof(db_trg)));
// Target parameters and shadow records differ in length only.
static_assert(offsetof(db_prm, parms) == offsetof(db_sht, parms) &&
              sizeof(db_prm::parms) == sizeof(db_sht::parms));
static_assert(rows_fit(prm_fields, sizeof(db_sht)) && rows_fit(thw_fields, sizeof(db_thw)));
static_assert(rows_fit(cat_fields, sizeof(db_cat)) && rows_fit(text_line, sizeof(db_cat::lines[0])));
static_assert(rows_fit(prd_fields, sizeof(db_prd)) && rows_fit(fst_fields, sizeof(db_fst)));
static_assert(rows_fit(cms_fields, sizeof(db_cms)));
static_assert(rows_fit(scn_fields, sizeof(db_scn)) && rows_fit(scf_fields, sizeof(db_scf)) &&
              rows_fit(rte_fields, sizeof(db_rte)) && rows_fit(route_fields, sizeof(db_route)) &&
              rows_fit(ucf_fields, sizeof(db_ucf)));
static_assert(rows_fit(ua_fields, 34) && rows_fit(cfg_fields, sizeof(db_cfg)));
static_assert(rows_fit(usr_fields, sizeof(db_usr)) && rows_fit(apr_fields, sizeof(db_apr)));
static_assert(rows_fit(ak_fields, sizeof(db_ak)) && rows_fit(access_key, sizeof(db_access_key)));
static_assert(rows_fit(tg_fields, sizeof(db_tg)) && rows_fit(dtg_fields, sizeof(db_dtg)));
static_assert(rows_fit(hardware_parameter, sizeof(db_hw_parm)) && rows_fit(parameter, sizeof(db_parm)) &&
              rows_fit(named_server, sizeof(db_cfg_server)));

static_assert(rows_fit(rqr_fields, DB_RQR_LEN) && rows_fit(coo_fields, sizeof(db_coo)));
static_assert(rows_fit(rqf_fields, DB_RQF_LEN) && rows_fit(fan_fields, DB_FAN_LEN));
static_assert(rows_fit(rqd_fields, DB_RQD_LEN) && rows_fit(rqt_fields, DB_RQT_LEN));
static_assert(rows_fit(rqv_fields, DB_RQV_LEN));

constexpr std::array<key_part, 0> no_key{};
constexpr std::array target_key{key_part{"NAME", text, sizeof(db_trg::trg_name) + 1, "trg_name"}};
constexpr std::array user_key{key_part{"USER", text, 17, nullptr},
                              key_part{"SECOND", text, 33, nullptr, false, true},
                              key_part{"SELECTOR", number, 1, nullptr, false, true}};
constexpr std::array usr_key{key_part{"USER", text, sizeof(db_usr::usr_name) + 1, "usr_name"}};
constexpr std::array profile_key{key_part{"NAME", text, sizeof(db_apr::name) + 1, "name"}};
constexpr std::array group_key{key_part{"NAME", text, sizeof(db_tg::name) + 1, "name"}};
constexpr std::array change_file_key{key_part{"FILE", change_file, sizeof(db_cf_name), "cf_name"}};
// Both types take the whole of a db_prd_key.
constexpr std::array product_key{key_part{"FILE", change_file, sizeof(db_cf_name), "cf_name"},
                                 key_part{"PRODUCT", number, 2, "product_id", true},
                                 key_part{nullptr, number, 2, nullptr, true}};
constexpr std::array fileset_key{key_part{"FILE", change_file, sizeof(db_cf_name), "cf_name"},
                                 key_part{"PRODUCT", number, 2, "product_id", true},
                                 key_part{"FILESET", number, 2, "fileset_id", true}};
constexpr std::array status_key{key_part{"TARGET", text, sizeof(db_cms::trg_name) + 1, "trg_name"},
                                key_part{"FILE", change_file, sizeof(db_cf_name), "cf_name"}};

constexpr key_part root_part{"REQUEST", request, sizeof(db_rqr_id), "user"};
constexpr key_part function_part{"REQUEST", request, sizeof(db_rqf_id), "user"};
constexpr std::array root_key{root_part};
constexpr std::array function_key{function_part};
constexpr std::array fanout_key{function_part,
                                key_part{"RGN", full_text, sizeof(db_fan_id::rgn), "rgn", true},
                                key_part{"REN", full_text, sizeof(db_fan_id::ren), "ren", true}};
constexpr std::array domain_key{function_part,
                                key_part{"DOMAIN", text, sizeof(db_rqd_id::domain), "domain", true}};
constexpr std::array destination_key{function_part,
                                     key_part{"DOMAIN", text, sizeof(db_rqd_id::domain), "domain", true},
                                     key_part{"TARGET", text, sizeof(db_rqt_id::target), "target", true}};
constexpr std::array correlated_key{key_part{"REQUEST", request, sizeof(db_coo), "user"}};
constexpr std::array correlator_key{key_part{"CORRELATOR", correlator, sizeof(db_coo), nullptr}};
constexpr std::array connection_key{key_part{"NAME", text, sizeof(db_scn::connection) + 1, "connection"}};

constexpr std::array all_types{
    record_type{"cfg", DB_CFG, "base configuration", sizeof(db_cfg), sizeof(db_cfg), sizeof(db_cfg), no_key,
                cfg_fields},
    record_type{"trg", DB_TRG, "targets", target_record_length, target_record_length, target_head_length,
                target_key, trg_fields},
    record_type{"prm", DB_PRM, "target parameters", sizeof(db_prm), sizeof(db_prm), sizeof(db_prm),
                target_key, prm_fields},
    record_type{"thw", DB_THW, "target hardware", sizeof(db_thw), sizeof(db_thw), sizeof(db_thw), target_key,
                thw_fields},
    record_type{"sht", DB_SHT, "shadow records", sizeof(db_sht), sizeof(db_sht), sizeof(db_sht), target_key,
                prm_fields},
    record_type{"ua", DB_UA, "user authorization", 34, 34, 34, user_key, ua_fields},
    record_type{"tg", DB_TG, "target groups", sizeof(db_tg), sizeof(db_tg), sizeof(db_tg), group_key,
                tg_fields},
    record_type{"dtg", DB_DTG, "dynamic target groups", sizeof(db_dtg), sizeof(db_dtg), sizeof(db_dtg),
                group_key, dtg_fields},
    record_type{"apr", DB_APR, "authorization profiles", sizeof(db_apr), sizeof(db_apr), sizeof(db_apr),
                profile_key, apr_fields},
    record_type{"usr", DB_USR, "users", sizeof(db_usr), sizeof(db_usr), sizeof(db_usr), usr_key, usr_fields},
    record_type{"tak", DB_TAK, "target access keys", sizeof(db_ak), sizeof(db_ak), sizeof(db_ak), no_key,
                ak_fields},
    record_type{"dak", DB_DAK, "data access keys", sizeof(db_ak), sizeof(db_ak), sizeof(db_ak), no_key,
                ak_fields},
    record_type{"cat", DB_CAT, "change files", sizeof(db_cat), sizeof(db_cat), change_file_head_length,
                change_file_key, cat_fields},
    record_type{"prd", DB_PRD, "products", sizeof(db_prd), sizeof(db_prd), sizeof(db_prd), product_key,
                prd_fields},
    record_type{"fst", DB_FST, "filesets", sizeof(db_fst), sizeof(db_fst), sizeof(db_fst), fileset_key,
                fst_fields},
    record_type{"cms", DB_CMS, "CM status", sizeof(db_cms), sizeof(db_cms), sizeof(db_cms), status_key,
                cms_fields},
    record_type{"rqr", DB_RQR, "user requests", DB_RQR_LEN, DB_RQR_LEN, sizeof(db_rqr_id), root_key,
                rqr_fields},
    record_type{"rqf", DB_RQF, "request functions", DB_RQF_LEN, DB_RQF_LEN, sizeof(db_rqf_id), function_key,
                rqf_fields},
    record_type{"fan", DB_FAN, "fan-out records", DB_FAN_LEN, DB_FAN_LEN, sizeof(db_fan_id), fanout_key,
                fan_fields},
    record_type{"rqd", DB_RQD, "request domain records", DB_RQD_LEN, DB_RQD_LEN, sizeof(db_rqd_id),
                domain_key, rqd_fields},
    record_type{"rqt", DB_RQT, "request target records", DB_RQT_LEN, DB_RQT_LEN, sizeof(db_rqt_id),
                destination_key, rqt_fields},
    // Fewer than 616 bytes are not filled.
    record_type{"rqv", DB_RQV, "request vectors", DB_RQV_LEN, DB_RQV_LEN, 616, function_key, rqv_fields},
    record_type{"coo", DB_COO, "correlators by request", sizeof(db_coo), sizeof(db_coo), sizeof(db_coo),
                correlated_key, coo_fields},
    record_type{"coi", DB_COI, "correlators by SNA correlator", sizeof(db_coo), sizeof(db_coo),
                sizeof(db_coo), correlator_key, coo_fields},
    record_type{"scn", DB_SCN, "SNADS connections", sizeof(db_scn), sizeof(db_scn), sizeof(db_scn),
                connection_key, scn_fields},
    record_type{"scf", DB_SCF, "SNADS configuration", sizeof(db_scf), sizeof(db_scf), sizeof(db_scf), no_key,
                scf_fields},
    record_type{"rte", DB_RTE, "SNADS routes", sizeof(db_rte), sizeof(db_rte), sizeof(db_rte), no_key,
                rte_fields},
    record_type{"ucf", DB_UCF, "user configuration", sizeof(db_ucf), sizeof(db_ucf), sizeof(db_ucf), no_key,
                ucf_fields},
};

}  // namespace

std::span<const record_type> record_types() {
  return all_types;
}

const field& record_type::field_named(std::string_view name) const {
  return *std::find_if(fields.begin(), fields.end(), [&](const field& f) { return name == f.name; });
}

const record_type* find_record_type(std::string_view suffix) {
  for (const record_type& type : all_types)
    if (suffix == type.suffix) return &type;
  return nullptr;
}

const record_type& record_type_named(std::string_view suffix) {
  if (const record_type* type = find_record_type(suffix)) return *type;
  std::string known;
  for (const record_type& type : all_types) known += std::string(known.empty() ? "" : ", ") + type.suffix;
  throw usage_fault("unknown record type '" + std::string(suffix) + "'; there are " + known);
}

std::span<const word> installation_kinds() {
  return kind_words;
}
std::span<const word> target_types() {
  return type_words;
}
std::span<const word> target_modes() {
  return mode_words;
}
std::span<const word> target_systems() {
  return system_words;
}

}  // namespace zvradm
