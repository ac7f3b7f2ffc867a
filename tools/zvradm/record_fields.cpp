#include "record_fields.h"

#include <zvrdb/zvrdb.h>

#include <array>
#include <string>

#include "refusals.h"

namespace zvradm {

namespace {

using enum field_kind;

// ---- words

constexpr std::array type_words{word{"NO_CM", 1}, word{"CLIENT", 2}, word{"BASE", 4},   word{"SERVER", 8},
                                word{"MOBILE", 16}, word{"LOCAL", 32}, word{"REMOTE", 128}};
constexpr std::array mode_words{word{"PULL", 1}, word{"PUSH", 2}, word{"FOCAL", 4}, word{"RTFOCAL", 8},
                                word{"NONE", 16}};
constexpr std::array system_words{
    word{"MK/6", 0},   word{"MK/7", 2},     word{"HP_UX", 3},       word{"DOS", 4},   word{"WINDOWS", 5},
    word{"SUNOS", 6},  word{"SOLARIS", 7},  word{"MAC", 8},         word{"NCR", 9},   word{"NETWARE", 10},
    word{"WINDOWS_NT", 11}, word{"SCO", 12}, word{"WIN98", 19},     word{"WIN2K", 20}, word{"WIN2K_ADV", 21},
    word{"OS_UNKNOWN", 24}, word{"ANY", 99}};
constexpr std::array machine_words{
    word{"MK/6", 0},  word{"MK/7", 2},   word{"HP_UX", 3},  word{"DOS", 4},         word{"WINDOWS", 5},
    word{"SUNOS", 6}, word{"SOLARIS", 7}, word{"MAC", 8},   word{"NCR", 9},         word{"NETWARE", 10},
    word{"WINDOWS_NT", 11}, word{"SCO", 12}, word{"SINIX", 13}, word{"MK/900", 14}, word{"IRIX", 16},
    word{"MK/8", 17}, word{"WIN95", 18}, word{"WIN98", 19}, word{"WIN2K", 20},      word{"WIN2K_ADV", 21},
    word{"OS_UNKNOWN", 24}};
constexpr std::array kind_words{word{"CLIENT", 0}, word{"BASE", 1}, word{"SERVER_NO_COMMS", 2},
                                word{"SERVER_WITH_COMMS", 3}, word{"REMOTE_ADMIN_SERVER", 4},
                                word{"REMOTE_ADMIN_BASE", 5}};
constexpr std::array rbapi_words{word{"none", 0}, word{"ui", 1}, word{"daca", 2}, word{"both", 3}};
constexpr std::array log_level_words{word{"M", 0}, word{"N", 1}, word{"D", 2}};
constexpr std::array held_words{word{"RELEASED", 0}, word{"HELD", 1}};
constexpr std::array authorize_words{word{"NONE", 0}, word{"ALL", 1}};
constexpr std::array flag_words{word{"NO", 0}, word{"YES", 1}};
constexpr std::array plan_words{word{"N", 0}, word{"Y", 1}};
constexpr std::array cfg_mode_words{word{"PULL", 1}, word{"PUSH", 2}};

// ---- rows

constexpr field words_row(const char* name, std::uint32_t offset, std::uint32_t width, std::span<const word> words,
                          std::uint8_t traits = plain) {
  return {.name = name, .alias = nullptr, .offset = offset, .width = width, .kind = number, .traits = traits,
          .words = words};
}

constexpr field row(const char* name, std::uint32_t offset, std::uint32_t width, field_kind kind,
                    std::uint8_t traits = plain) {
  return {.name = name, .alias = nullptr, .offset = offset, .width = width, .kind = kind, .traits = traits};
}

constexpr field list_row(const char* name, const char* alias, std::uint32_t offset, std::uint32_t width,
                         std::span<const field> elements, std::uint32_t capacity, std::int64_t count_at) {
  return {.name = name, .alias = alias, .offset = offset, .width = width, .kind = list, .traits = plain, .words = {},
          .elements = elements, .capacity = capacity, .count_at = count_at};
}

constexpr std::array hardware_parameter{row("name", 0, 81, text), row("value", 81, 81, text)};
constexpr std::array parameter{row("name", 0, 12, text), row("value", 12, 50, text)};
constexpr std::array named_server{row("name", 0, 64, text), row("carried64", 64, 286, hex)};

constexpr std::array trg_fields{
    row("trg_name", 0, 64, text, column),
    row("description", 64, 60, text, column),
    row("rgn", 124, 8, full_text, column),
    row("ren", 132, 8, full_text, column),
    row("carried140", 140, 4, hex),
    words_row("trg_type", 144, 1, type_words, bit_set | column),
    words_row("trg_os", 145, 1, system_words, column),
    words_row("trg_mode", 146, 1, mode_words, bit_set | column),
    row("mob_conn_stat", 147, 1, number),
    row("cm_window_start", 148, 4, number),
    row("cm_window_stop", 152, 4, number),
    row("dist_window_start", 156, 4, number),
    row("dist_window_stop", 160, 4, number),
    words_row("rbapi_trace", 164, 1, rbapi_words),
    words_row("log_level", 165, 1, log_level_words),
    words_row("held_status", 166, 1, held_words),
    row("in_use", 167, 1, number, live),
    row("carried168", 168, 16, text),
    row("trg_status", 184, 4, hex, live),
    row("srv_num", 188, 4, number, live),
    row("srv_name", 192, 64, text, column),
    row("lan_address", 256, 32, text, column),
    row("customer_name", 288, 60, text),
    row("contact_name", 348, 60, text),
    row("contact_phone", 408, 32, text),
    row("manager_name", 440, 60, text),
    row("manager_address", 500, 200, text),
    row("carried702", 702, 286, hex),
    list_row("hw_parms", nullptr, 988, 162, hardware_parameter, 128, 700),
};

constexpr std::array prm_fields{
    row("trg_name", 0, 64, text, column),
    list_row("parms", "entries", 68, 62, parameter, 1000, 64),
};
constexpr std::array thw_fields{
    row("trg_name", 0, 64, text, column),
    list_row("hw_parms", "entries", 68, 162, hardware_parameter, 128, 64),
};

constexpr std::array ua_fields{
    row("user_name", 0, 16, full_text, column),
    row("second_name", 16, 16, full_text, column),
    row("selector", 32, 1, number, column),
    row("level", 33, 1, number, column),
};

constexpr std::array cfg_fields{
    row("workstation_name", 0, 64, text, column),
    words_row("message_log_level", 64, 2, log_level_words),
    row("lan_authorization", 66, 2, number),
    row("log_file_size", 68, 4, number),
    row("api_trace_file_size", 72, 4, number),
    row("trace_file_size", 76, 4, number),
    row("tcpip_port", 80, 2, number),
    row("file_system", 82, 2, number),
    words_row("machine_type", 84, 1, machine_words, column),
    words_row("configuration", 85, 1, kind_words, column),
    row("max_attempts", 86, 2, number),
    row("file_path", 88, 256, text),
    row("repository", 344, 256, text),
    row("service_area", 600, 256, text),
    row("backup_area", 856, 256, text),
    row("work_area", 1112, 256, text),
    list_row("servers", nullptr, 1368, 350, named_server, 5, -1),
    row("carried3118", 3118, 1146, hex),
    row("max_connections", 4264, 4, number),
    row("max_targets", 4268, 4, number, column),
    row("max_user_interfaces", 4272, 4, number),
    words_row("authorize", 4276, 1, authorize_words),
    words_row("automatic_client_upgrade", 4277, 1, flag_words),
    words_row("target_password_authentication", 4278, 1, flag_words),
    row("carried4279", 4279, 1, hex),
    row("max_requests", 4280, 4, number),
    row("max_local_targets", 4284, 4, number, column),
    row("max_server_connections", 4288, 4, number),
    row("max_sts", 4292, 4, number),
    row("daca_idle_time", 4296, 4, number),
    row("daca_retry_time", 4300, 4, number),
    row("sts_idle_time", 4304, 4, number),
    row("sts_retry_time", 4308, 4, number),
    row("inventory_program", 4312, 256, text),
    row("max_server_targets", 4568, 4, number, column),
    row("max_snads_routes", 4572, 4, number),
    row("max_sts_routes", 4576, 4, number),
    words_row("plan_feature", 4580, 1, plan_words),
    words_row("automatic_target_registration", 4581, 1, flag_words),
    words_row("automatic_target_inventory", 4582, 1, flag_words),
    words_row("target_mode", 4583, 1, cfg_mode_words),
    row("target_address", 4584, 9, text),
    words_row("extend_file_system_on_store", 4593, 1, flag_words),
    row("os_user", 4594, 16, text),
    words_row("automatic_target_info_update", 4610, 1, flag_words),
    words_row("automatic_target_deletion", 4611, 1, flag_words),
    row("carried4612", 4612, 12, hex),
    words_row("kestra_alert", 4624, 1, flag_words),
    row("carried4625", 4625, 11, hex),
    row("connection_window_duration", 4636, 4, number),
};

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
static_assert(rows_fit(trg_fields, 21724) && 988 + 128 * 162 == 21724);
static_assert(rows_fit(prm_fields, 62068) && rows_fit(thw_fields, 20804));
static_assert(rows_fit(ua_fields, 34) && rows_fit(cfg_fields, 4640));
static_assert(rows_fit(hardware_parameter, 162) && rows_fit(parameter, 62) && rows_fit(named_server, 350));

constexpr std::array<key_part, 0> no_key{};
constexpr std::array target_key{key_part{"NAME", 65}};
constexpr std::array user_key{key_part{"USER", 17}, key_part{"SECOND", 33}, key_part{"SELECTOR", 1}};

constexpr std::array all_types{
    record_type{"cfg", DB_CFG, "base configuration", 4640, 4640, 4640, no_key, cfg_fields, nullptr},
    record_type{"trg", DB_TRG, "targets", target_record_length, target_record_length, target_head_length, target_key,
                trg_fields, "trg_name"},
    record_type{"prm", DB_PRM, "target parameters", 62812, 62812, 62812, target_key, prm_fields, "trg_name"},
    record_type{"thw", DB_THW, "target hardware", 20804, 20804, 20804, target_key, thw_fields, "trg_name"},
    record_type{"sht", DB_SHT, "shadow records", 62068, 62068, 62068, target_key, prm_fields, "trg_name"},
    record_type{"ua", DB_UA, "user authorization", 34, 34, 34, user_key, ua_fields, nullptr},
};

}  // namespace

std::span<const record_type> record_types() { return all_types; }

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

std::span<const word> installation_kinds() { return kind_words; }
std::span<const word> target_types() { return type_words; }
std::span<const word> target_modes() { return mode_words; }
std::span<const word> target_systems() { return system_words; }

}  // namespace zvradm
