#include "keyed/field_tables.h"

#include <zvrdb/records.h>

#include "keyed/conversion_fixture.h"

namespace zvrtest {
namespace {

using zvrdb::keyed::data_type;
using zvrdb::keyed::field_descriptor;
using zvrdb::keyed::field_table;

struct expected_table {
  std::uint32_t db_id;
  std::size_t rows;
  std::uint32_t first_length;
  std::size_t record_length;  // where the last field by offset ends
};
constexpr expected_table expected[] = {
    {DB_TRG, 20, 12, sizeof(db_trg)}, {DB_PRM, 4, 12, 62068},
    {DB_TG, 4, 72, sizeof(db_tg)},    {DB_CAT, 8, 16, 2463},
    {DB_THW, 4, 12, sizeof(db_thw)},  {DB_RQR, 11, 76, DB_RQR_LEN},
    {DB_RQF, 5, 76, DB_RQF_LEN},      {DB_FAN, 3, 76, DB_FAN_LEN},
    {DB_RQD, 5, 76, DB_RQD_LEN},      {DB_RQT, 6, 76, DB_RQT_LEN},
    {DB_USR, 6, 24, sizeof(db_usr)},  {DB_APR, 2, 24, sizeof(db_apr)},
    {DB_TAK, 2, 24, sizeof(db_ak)},   {DB_DAK, 2, 24, sizeof(db_ak)},
    {DB_PRD, 7, 16, sizeof(db_prd)},  {DB_FST, 4, 16, 547},
    {DB_COI, 3, 48, sizeof(db_coo)},  {DB_COO, 3, 48, sizeof(db_coo)},
    {DB_RQV, 4, 76, DB_RQV_LEN},      {DB_DTG, 5, 72, sizeof(db_dtg)},
    {DB_SHT, 4, 12, sizeof(db_sht)},
};

TEST(FieldTables, EachKeyedTypeHasItsTable) {
  std::size_t tables = 0;
  for (std::uint32_t db_id = 0; db_id < 100; ++db_id) tables += field_table(db_id).empty() ? 0 : 1;
  EXPECT_EQ(tables, std::size(expected));
  for (const expected_table& of : expected) {
    const auto table = field_table(of.db_id);
    ASSERT_EQ(table.size(), of.rows) << of.db_id;
    EXPECT_EQ(table.front().length, of.first_length) << of.db_id;
    std::size_t end = 0;
    for (const field_descriptor& field : table)
      end = std::max<std::size_t>(end, field.offset + field.length * std::max<std::size_t>(field.occ, 1));
    EXPECT_EQ(end, of.record_length) << of.db_id;
  }
}

TEST(FieldTables, AFieldHasBothFunctionsOrNoneAndAKeyHasThem) {
  for (const expected_table& of : expected) {
    EXPECT_NE(field_table(of.db_id).front().parse, nullptr) << of.db_id;
    for (const field_descriptor& field : field_table(of.db_id))
      EXPECT_EQ(field.parse == nullptr, field.unparse == nullptr) << of.db_id << " at " << field.offset;
  }
}

// A row as text: offset+length, a letter for its type when it is not a block (t text, s
// short number, l number, y bytes), f for functions of its own, *occurrences@count field.
std::string row_text(const field_descriptor& field) {
  std::string text = std::to_string(field.offset) + "+" + std::to_string(field.length);
  if (field.type == data_type::text) text += "t";
  if (field.type == data_type::short_number) text += "s";
  if (field.type == data_type::number) text += "l";
  if (field.type == data_type::bytes) text += "y";
  if (field.parse) text += "f";
  if (field.occ == 0) return text;
  text += "*" + std::to_string(field.occ) + "@";
  return text +
         (field.count_offset == zvrdb::keyed::fixed_count ? "fixed" : std::to_string(field.count_offset));
}

// The tables are the format of the files: a row that changes makes stored records
// unreadable.
TEST(FieldTables, EveryRowStandsWhereTheFilesHaveIt) {
  const std::pair<std::uint32_t, const char*> tables[] = {
      {DB_TRG,
       "0+12f 0+64 64+60t 140+7y 124+16 147+1f 148+16 164+3y 168+16t 192+64f 188+4yf 256+32t 288+60t 348+60t "
       "408+32t 440+60t 500+200t 702+286 700+2s 988+162*128@700"},
      {DB_PRM, "0+12f 0+64 64+2s 68+62*1000@64"},
      {DB_TG, "0+72f 64+60t 124+28 152+64tf*1000@148"},
      {DB_CAT, "0+16f 0+102 102+244t 346+4t 350+14 364+256t*8@fixed 2412+50 2462+1"},
      {DB_THW, "0+12f 0+64 64+2s 68+162*128@64"},
      {DB_RQR, "0+76f 88+2s 90+256t 348+3016 3364+152 3516+64 3580+10 3590+2s 3592+64 3656+54 3710+512"},
      {DB_RQF, "0+76f 104+4276 4380+258t 4638+5054 9692+512"},
      {DB_FAN, "0+76f 120+518 638+24560f"},
      {DB_RQD, "0+76f 168+4 172+256t 428+40 9692+512"},
      {DB_RQT, "0+76f 232+4 236+256t 492+28 520+1060f 9692+512"},
      {DB_USR, "0+24f 16+20 40+60t 100+16t 116+96 212+64tf*16@210"},
      {DB_APR, "0+24f 16+12"},
      {DB_TAK, "0+24f 0+2432"},
      {DB_DAK, "0+24f 0+2432"},
      {DB_PRD, "0+16f 80+145t 225+65t 290+65t 355+65t 420+257t 680+2s"},
      {DB_FST, "0+16f 80+145t 225+65t 290+257t"},
      {DB_COI, "0+48f 104+76f 180+4l"},
      {DB_COO, "0+48f 104+76f 180+4l"},
      {DB_RQV, "0+76f 9692+512 616+4l 620+64000f"},
      {DB_DTG, "0+72f 64+60t 124+4272 300+4096t 4396+64tf*800@148"},
      {DB_SHT, "0+12f 0+64 64+2s 68+62*1000@64"},
  };
  for (const auto& [db_id, rows] : tables) {
    std::string found;
    for (const field_descriptor& field : field_table(db_id))
      found += (found.empty() ? "" : " ") + row_text(field);
    EXPECT_EQ(found, rows) << db_id;
  }
}

TEST(FieldTables, NoRecordOfFullLengthIsLongerInTheFileThanTheWorkArea) {
  for (const expected_table& of : expected) {
    std::size_t stored = 0;
    for (const field_descriptor& field : field_table(of.db_id))
      stored += field.parse && field.occ ? std::size_t{4} * field.occ
                                         : std::size_t{field.length} * std::max<std::size_t>(field.occ, 1);
    EXPECT_LE(stored, zvrdb::keyed::external_capacity) << of.db_id;
  }
}

TEST(FieldTables, TheTextOfADynamicGroupIsStoredTwice) {
  table_task t;
  record_bytes group = record_bytes(55596).text(0, "G").text(300, "selection");
  const conversion stored = unparse(t.task(), DB_DTG, group.all());
  EXPECT_EQ(stored.bytes.size(), 72u + 1 + 4272 + 10);
  EXPECT_EQ(as_record(parse(t.task(), DB_DTG, stored.bytes, 55596)).all(), group.all());
}

}  // namespace
}  // namespace zvrtest
