// The field tables of all keyed record types, in the order of the external form, which
// is not always that of the offsets.  Gaps between rows are fields that the key carries.
#include "keyed/field_tables.h"

#include <array>

#include "keyed/converters.h"
#include "memory/codes.h"

namespace zvrdb::keyed {
namespace {

// A single field that is copied as it stands.
constexpr field_descriptor plain(std::uint32_t offset, std::uint32_t length, data_type type) {
  return {type, 0, length, offset, 0, nullptr, nullptr};
}
// A single field whose external form its functions know.
constexpr field_descriptor special(std::uint32_t offset, std::uint32_t length, data_type type, parse_fn parse,
                                   unparse_fn unparse) {
  return {type, 0, length, offset, 0, parse, unparse};
}
constexpr field_descriptor array(std::uint32_t offset, std::uint32_t length, data_type type,
                                 std::uint16_t occ, std::uint32_t count_offset, parse_fn parse = nullptr,
                                 unparse_fn unparse = nullptr) {
  return {type, occ, length, offset, count_offset, parse, unparse};
}

using enum data_type;

constexpr field_descriptor trg_fields[] = {
    special(0, 12, block, prs_trg_name, unprs_trg_key),
    plain(0, 64, block),
    plain(64, 60, text),
    plain(140, 7, bytes),
    plain(124, 16, block),
    special(147, 1, block, prs_mobstat, unprs_mobstat),
    plain(148, 16, block),
    plain(164, 3, bytes),
    plain(168, 16, text),
    special(192, 64, block, prs_trg_name, unprs_trg_name),
    special(188, 4, bytes, prs_srv_num, unprs_srv_num),
    plain(256, 32, text),
    plain(288, 60, text),
    plain(348, 60, text),
    plain(408, 32, text),
    plain(440, 60, text),
    plain(500, 200, text),
    plain(702, 286, block),
    plain(700, 2, short_number),
    array(988, 162, block, 128, 700),
};
constexpr field_descriptor prm_fields[] = {
    special(0, 12, block, prs_trg_name, unprs_trg_key),
    plain(0, 64, block),
    plain(64, 2, short_number),
    array(68, 62, block, 1000, 64),
};
constexpr field_descriptor tg_fields[] = {
    special(0, 72, block, prs_tg_name, unprs_tg_name),
    plain(64, 60, text),
    plain(124, 28, block),
    array(152, 64, text, 1000, 148, prs_trg_name, unprs_trg_name),
};
constexpr field_descriptor cat_fields[] = {
    special(0, 16, block, prs_cat_key, unprs_cat_key),
    plain(0, 102, block),
    plain(102, 244, text),
    plain(346, 4, text),
    plain(350, 14, block),
    array(364, 256, text, 8, fixed_count),
    plain(2412, 50, block),
    plain(2462, 1, block),
};
constexpr field_descriptor thw_fields[] = {
    special(0, 12, block, prs_trg_name, unprs_trg_key),
    plain(0, 64, block),
    plain(64, 2, short_number),
    array(68, 162, block, 128, 64),
};
constexpr field_descriptor rqr_fields[] = {
    special(0, 76, block, prs_ur_key, unprs_ur_key),
    plain(88, 2, short_number),
    plain(90, 256, text),
    plain(348, 3016, block),
    plain(3364, 152, block),
    plain(3516, 64, block),
    plain(3580, 10, block),
    plain(3590, 2, short_number),
    plain(3592, 64, block),
    plain(3656, 54, block),
    plain(3710, 512, block),
};
constexpr field_descriptor rqf_fields[] = {
    special(0, 76, block, prs_ur_key, unprs_ur_key),
    plain(104, 4276, block),
    plain(4380, 258, text),
    plain(4638, 5054, block),
    plain(9692, 512, block),
};
constexpr field_descriptor fan_fields[] = {
    special(0, 76, block, prs_ur_key, unprs_ur_key),
    plain(120, 518, block),
    special(638, 24560, block, prs_fan_blk, unprs_fan_blk),
};
constexpr field_descriptor rqd_fields[] = {
    special(0, 76, block, prs_ur_key, unprs_ur_key),
    plain(168, 4, block),
    plain(172, 256, text),
    plain(428, 40, block),
    plain(9692, 512, block),
};
constexpr field_descriptor rqt_fields[] = {
    special(0, 76, block, prs_ur_key, unprs_ur_key),
    plain(232, 4, block),
    plain(236, 256, text),
    plain(492, 28, block),
    special(520, 1060, block, prs_report, unprs_report),
    plain(9692, 512, block),
};
constexpr field_descriptor usr_fields[] = {
    special(0, 24, block, prs_usr_name, unprs_usr_name),
    plain(16, 20, block),
    plain(40, 60, text),
    plain(100, 16, text),
    plain(116, 96, block),
    array(212, 64, text, 16, 210, prs_trg_name, unprs_trg_name),
};
constexpr field_descriptor apr_fields[] = {
    special(0, 24, block, prs_apr_name, unprs_apr_name),
    plain(16, 12, block),
};
constexpr field_descriptor tak_and_dak_fields[] = {
    special(0, 24, block, prs_ak, unprs_ak),
    plain(0, 2432, block),
};
constexpr field_descriptor prd_fields[] = {
    special(0, 16, block, prs_cat_key, unprs_cat_key),
    plain(80, 145, text),
    plain(225, 65, text),
    plain(290, 65, text),
    plain(355, 65, text),
    plain(420, 257, text),
    plain(680, 2, short_number),
};
constexpr field_descriptor fst_fields[] = {
    special(0, 16, block, prs_cat_key, unprs_cat_key),
    plain(80, 145, text),
    plain(225, 65, text),
    plain(290, 257, text),
};
constexpr field_descriptor coi_and_coo_fields[] = {
    special(0, 48, block, prs_coo_key, unprs_coo_key),
    special(104, 76, block, prs_coi_key, unprs_coi_key),
    plain(180, 4, number),
};
constexpr field_descriptor rqv_fields[] = {
    special(0, 76, block, prs_ur_key, unprs_ur_key),
    plain(9692, 512, block),
    plain(616, 4, number),
    special(620, 64000, block, prs_vector, unprs_vector),
};
constexpr field_descriptor dtg_fields[] = {
    special(0, 72, block, prs_dtg_name, unprs_dtg_name),
    plain(64, 60, text),
    plain(124, 4272, block),
    plain(300, 4096, text),
    array(4396, 64, text, 800, 148, prs_trg_name, unprs_trg_name),
};
constexpr field_descriptor sht_fields[] = {
    special(0, 12, block, prs_trg_name, unprs_trg_key),
    plain(0, 64, block),
    plain(64, 2, short_number),
    array(68, 62, block, 1000, 64),
};

using table_list = std::array<std::span<const field_descriptor>, DB_TYPE_COUNT>;

constexpr table_list all_tables() {
  table_list all;
  all[DB_TRG] = trg_fields;
  all[DB_PRM] = prm_fields;
  all[DB_TG] = tg_fields;
  all[DB_CAT] = cat_fields;
  all[DB_THW] = thw_fields;
  all[DB_RQR] = rqr_fields;
  all[DB_RQF] = rqf_fields;
  all[DB_FAN] = fan_fields;
  all[DB_RQD] = rqd_fields;
  all[DB_RQT] = rqt_fields;
  all[DB_USR] = usr_fields;
  all[DB_APR] = apr_fields;
  all[DB_TAK] = tak_and_dak_fields;
  all[DB_DAK] = tak_and_dak_fields;
  all[DB_PRD] = prd_fields;
  all[DB_FST] = fst_fields;
  all[DB_COI] = coi_and_coo_fields;
  all[DB_COO] = coi_and_coo_fields;
  all[DB_RQV] = rqv_fields;
  all[DB_DTG] = dtg_fields;
  all[DB_SHT] = sht_fields;
  return all;
}
constexpr table_list tables = all_tables();

// What the conversion relies on: the first row is the key, at offset 0; no field is
// empty; the count of an array lies before the array.
constexpr bool tables_hold() {
  for (const std::span<const field_descriptor> table : tables) {
    if (!table.empty() && table.front().offset != 0) return false;
    for (const field_descriptor& field : table) {
      if (field.length == 0) return false;
      const bool counted = field.occ != 0 && field.count_offset != fixed_count;
      if (counted && field.count_offset + sizeof(std::uint16_t) > field.offset) return false;
    }
  }
  return true;
}
static_assert(tables_hold());

}  // namespace

std::span<const field_descriptor> field_table(std::uint32_t db_id) {
  if (db_id >= tables.size()) return {};
  return tables[db_id];
}

}  // namespace zvrdb::keyed
