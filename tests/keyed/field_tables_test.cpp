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

TEST(FieldTables, SomeFieldsAreStoredOutOfTheOrderOfTheirOffsets) {
  const auto trg = field_table(DB_TRG);
  EXPECT_EQ(trg[3].offset, 140u);
  EXPECT_EQ(trg[4].offset, 124u);
  EXPECT_EQ(trg[9].offset, 192u);
  EXPECT_EQ(trg[10].offset, 188u);
  EXPECT_EQ(trg[17].offset, 702u);
  EXPECT_EQ(trg[18].offset, 700u);
  const auto rqv = field_table(DB_RQV);
  EXPECT_EQ(rqv[1].offset, 9692u);
  EXPECT_EQ(rqv[2].offset, 616u);
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
