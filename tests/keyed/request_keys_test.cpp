// Keys of requests and correlators, and other keys that are not copies of fields.
#include "keyed/conversion_fixture.h"
#include "keyed/converters.h"

namespace zvrtest {
namespace {

using namespace zvrdb::keyed;

struct request_type {
  std::uint32_t db_id;
  std::size_t id_len;
  std::size_t record_len;
};
constexpr request_type request_types[] = {{DB_RQR, 88, 4222},   {DB_RQF, 104, 10204}, {DB_FAN, 120, 25198},
                                          {DB_RQD, 168, 10204}, {DB_RQT, 232, 10204}, {DB_RQV, 104, 64620}};

class RequestKeys : public ConversionTest {
 protected:
  static record_bytes request(std::uint32_t db_id, std::size_t length) {
    record_bytes record(length);
    record.text(0, "user")
        .text(16, "T2")
        .number<std::uint32_t>(80, 0x01020304)
        .number<std::uint16_t>(84, 0x0506);
    if (db_id != DB_RQR) record.text(88, "function");
    if (db_id == DB_FAN) record.text(104, "RGN45678REN45678");
    if (db_id == DB_RQD || db_id == DB_RQT) record.text(104, "T3");
    if (db_id == DB_RQT) record.text(168, "T4");
    return record;
  }
};

TEST_F(RequestKeys, EachTypeStoresWhatItsIdentifierHas) {
  for (const request_type& type : request_types) {
    const conversion stored = unparsed(type.db_id, request(type.db_id, type.record_len));
    ASSERT_EQ(stored.rc, DBE_OK) << type.db_id;
    record_bytes key(76);
    key.all().assign(stored.bytes.begin(), stored.bytes.begin() + 76);
    EXPECT_EQ(key.number_at<std::uint32_t>(0), type.db_id);
    EXPECT_EQ(key.number_at<std::uint32_t>(4), 2u);
    EXPECT_EQ(key.text_at(8, 16), "user");
    EXPECT_EQ(key.number_at<std::uint32_t>(24), 0x01020304u);
    EXPECT_EQ(key.number_at<std::uint32_t>(28), 0x0506u);
    EXPECT_EQ(key.text_at(32, 16), type.db_id == DB_RQR ? "" : "function");
    EXPECT_EQ(key.text_at(48, 16), type.db_id == DB_FAN ? "RGN45678REN45678" : "");
    EXPECT_EQ(key.number_at<std::uint32_t>(64), type.db_id == DB_RQD || type.db_id == DB_RQT ? 3u : 0u);
    EXPECT_EQ(key.number_at<std::uint32_t>(68), type.db_id == DB_RQT ? 4u : 0u);
    EXPECT_EQ(key.number_at<std::uint32_t>(72), 0u);
  }
}

TEST_F(RequestKeys, TheKeyAloneGivesTheIdentifierBack) {
  for (const request_type& type : request_types) {
    const std::vector<unsigned char> stored =
        unparsed(type.db_id, request(type.db_id, type.record_len)).bytes;
    const std::vector<unsigned char> key(stored.begin(), stored.begin() + 76);
    const conversion back = parsed(type.db_id, key, type.id_len);
    ASSERT_EQ(back.rc, DBE_OK) << type.db_id;
    EXPECT_EQ(back.bytes, request(type.db_id, type.id_len).all()) << type.db_id;
  }
}

TEST_F(RequestKeys, AnUnknownNameAnywhereIsNoTarget) {
  EXPECT_EQ(unparsed(DB_RQT, request(DB_RQT, 232).text(168, "nobody")).rc, DBE_NO_TARGET);
  EXPECT_EQ(unparsed(DB_RQT, request(DB_RQT, 232).text(104, "nobody")).rc, DBE_NO_TARGET);
  EXPECT_EQ(unparsed(DB_RQT, request(DB_RQT, 232).text(16, "nobody")).rc, DBE_NO_TARGET);
  EXPECT_EQ(unparsed(DB_RQR, request(DB_RQR, 88).text(16, std::string(64, 'x'))).rc, DBE_NO_TARGET);
}

TEST_F(RequestKeys, ALengthOf85FillsTheSequenceAndLeavesTheRecursion) {
  const std::vector<unsigned char> stored = unparsed(DB_RQR, request(DB_RQR, 4222)).bytes;
  const record_bytes back = as_record(parsed(DB_RQR, stored, 85));
  EXPECT_EQ(back.number_at<std::uint32_t>(80), 0x01020304u);
  EXPECT_EQ(back[84], 0);
  EXPECT_EQ(as_record(parsed(DB_RQR, stored, 86)).number_at<std::uint16_t>(84), 0x0506);
}

TEST_F(RequestKeys, AShortBufferAsksForNoName) {
  std::vector<unsigned char> stored = unparsed(DB_RQT, request(DB_RQT, 10204)).bytes;
  const std::uint32_t wild = 4000;
  for (const std::size_t number : {4u, 64u, 68u}) std::memcpy(stored.data() + number, &wild, 4);
  EXPECT_EQ(parsed(DB_RQT, stored, 79).rc, DBE_OK);
  EXPECT_EQ(as_record(parsed(DB_RQT, stored, 79)).text_at(0, 16), "user");
  EXPECT_EQ(parsed(DB_RQT, stored, 15).bytes, std::vector<unsigned char>(15, 0));
  EXPECT_EQ(parsed(DB_RQT, stored, 80).rc, DBE_NO_TARGET);
}

TEST_F(RequestKeys, WithoutADescriptorThePositionStays) {
  unsigned char key[76];
  external_sink to = {key, key + sizeof key};
  const record_bytes id = request(DB_RQF, 104);
  ASSERT_EQ(unprs_ur_key(t.task(), DB_RQF, nullptr, &to, {id.all().data(), 104}), DBE_OK);
  EXPECT_EQ(to.at, key);
  external_source from = {key, key + sizeof key, nullptr};
  record_bytes back(104);
  ASSERT_EQ(prs_ur_key(t.task(), DB_RQF, nullptr, &from, {back.all().data(), 104}), DBE_OK);
  EXPECT_EQ(from.at, key);
  EXPECT_EQ(back.all(), id.all());
}

TEST_F(RequestKeys, AnotherTypeHasNoRequestKey) {
  unsigned char key[76];
  external_sink to = {key, key + sizeof key};
  external_source from = {key, key + sizeof key, nullptr};
  record_bytes id(232);
  EXPECT_EQ(unprs_ur_key(t.task(), DB_USR, nullptr, &to, {id.all().data(), 232}), DBE_BAD_DB_ID);
  EXPECT_EQ(prs_ur_key(t.task(), DB_USR, nullptr, &from, {id.all().data(), 232}), DBE_BAD_DB_ID);
}

TEST_F(RequestKeys, BytesBehindTheNulOfANameDoNotReachTheKey) {
  const conversion clean = unparsed(DB_RQF, request(DB_RQF, 104));
  record_bytes dirty = request(DB_RQF, 104);
  dirty.fill(5, 11, 'z').fill(97, 7, 'z').fill(19, 61, 'z');
  EXPECT_EQ(unparsed(DB_RQF, dirty).bytes, clean.bytes);
}

TEST_F(RequestKeys, ACorrelatorCarriesBothItsKeys) {
  record_bytes record = request(DB_RQF, 184).text(104, "ORIGIN").number<std::uint16_t>(168, 1999);
  record.number<std::uint8_t>(170, 12).number<std::uint8_t>(171, 31).number<std::uint32_t>(172, 0x00030201);
  record.number<std::uint32_t>(176, 42).number<std::uint32_t>(180, 7);
  for (const std::uint32_t db_id : {DB_COI, DB_COO}) {
    const conversion stored = unparsed(db_id, record);
    ASSERT_EQ(stored.rc, DBE_OK);
    ASSERT_EQ(stored.bytes.size(), 128u);
    record_bytes keys(128);
    keys.all() = stored.bytes;
    EXPECT_EQ(keys.number_at<std::uint32_t>(0), 2u);
    EXPECT_EQ(keys.text_at(4, 16), "user");
    EXPECT_EQ(keys.text_at(28, 16), "function");
    EXPECT_EQ(keys.text_at(48, 64), "ORIGIN");
    EXPECT_EQ(keys.number_at<std::uint16_t>(112), 1999);
    EXPECT_EQ(keys.number_at<std::uint32_t>(120), 42u);
    EXPECT_EQ(as_record(parsed(db_id, stored.bytes, 184)).all(), record.all());
  }
}

TEST_F(RequestKeys, ACorrelatorCutBeforeItsSecondKeyStoresNothing) {
  EXPECT_EQ(unparsed(DB_COO, request(DB_RQF, 104)).bytes.size(), 0u);
}

TEST_F(RequestKeys, ProductsGetTheirNameFromTheNumberInTheKey) {
  zvrdb::DIST_CAT_ENTRY& slot = t.tcb()->dist_cat[3];
  std::memcpy(slot.head + 11, "NAME", 5);
  t.cntl()->num_cat_actual = 4;
  record_bytes key = record_bytes(16).number<std::uint32_t>(0, 27).number<std::uint16_t>(4, 3);
  key.number<std::uint16_t>(6, 11).number<std::uint16_t>(8, 12);
  const record_bytes fileset = as_record(parsed(DB_FST, key.all(), 80));
  EXPECT_EQ(fileset.text_at(11, 65), "NAME");
  EXPECT_EQ(fileset.number_at<std::uint16_t>(76), 11);
  EXPECT_EQ(fileset.number_at<std::uint16_t>(78), 12);
  const record_bytes product = as_record(parsed(DB_PRD, key.all(), 80));
  EXPECT_EQ(product.number_at<std::uint16_t>(76), 11);
  EXPECT_EQ(product.number_at<std::uint16_t>(78), 0);
  EXPECT_EQ(as_record(parsed(DB_FST, key.all(), 79)).number_at<std::uint16_t>(76), 11);
  EXPECT_EQ(parsed(DB_FST, key.all(), 77).bytes, std::vector<unsigned char>(77, 0));
  key.number<std::uint16_t>(4, 5);
  EXPECT_EQ(parsed(DB_PRD, key.all(), 80).rc, DBE_NOT_FOUND);
}

TEST_F(RequestKeys, AUserNameComesFromTheKey) {
  const record_bytes key = record_bytes(24).number<std::uint32_t>(0, 22).text(4, "sixteenlettersok");
  const conversion back = parsed(DB_USR, key.all(), 20);
  EXPECT_EQ(back.rc, DBE_OK);
  EXPECT_EQ(as_record(back).text_at(0, 16), "sixteenlettersok");
  EXPECT_EQ(as_record(back).number_at<std::uint32_t>(16), 0u);
  EXPECT_EQ(as_record(parsed(DB_APR, key.all(), 5)).text_at(0, 5), "sixte");
  EXPECT_EQ(parsed(DB_TAK, key.all(), 12).bytes, std::vector<unsigned char>(12, 0));
}

}  // namespace
}  // namespace zvrtest
