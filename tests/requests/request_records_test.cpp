// Records of requests one by one: get, put and delete of the six types.
#include "requests/requests_fixture.h"

namespace request_test {
namespace {

class RequestRecords : public RequestsTest {};

TEST_F(RequestRecords, AWholeRecordOfEachTypeComesBackAsItWasPut) {
  for (const Type& type : request_types()) {
    const bytes record = full_record(type.db_id, Id{});
    ASSERT_EQ(put_record(type.db_id, Id{}, record), DBE_OK) << type.suffix;
    bytes back(type.record_len, 0x77);
    ASSERT_EQ(get_request(type.db_id, Id{}, back), DBE_OK) << type.suffix;
    // The bytes between texts and blocks that no row stores.
    bytes expected = record;
    if (type.db_id == DB_RQR)
      std::fill(expected.begin() + 346, expected.begin() + 348, static_cast<unsigned char>(0));
    EXPECT_EQ(back, expected) << type.suffix;
    const bytes other = full_record(type.db_id, Id{}, 2);
    EXPECT_EQ(put_record(type.db_id, Id{}, other), DBE_RECORD_REPLACED) << type.suffix;
    ASSERT_EQ(get_request(type.db_id, Id{}, back), DBE_OK);
    EXPECT_NE(back, expected) << type.suffix;
  }
}

TEST_F(RequestRecords, OneIdentifierIsARecordOfItsOwnUnderEachType) {
  for (const Type& type : request_types()) ASSERT_EQ(put_request(type.db_id, Id{}), DBE_OK);
  for (const Type& type : request_types()) {
    EXPECT_EQ(all(type.db_id), std::vector<std::string>{Id{}.text(type.db_id)});
    EXPECT_EQ(del_request(type.db_id, Id{}), DBE_OK);
    EXPECT_EQ(del_request(type.db_id, Id{}), DBE_NOT_FOUND);
    EXPECT_TRUE(all(type.db_id).empty());
  }
}

TEST_F(RequestRecords, EachPartOfTheIdentifierMakesAnotherRecord) {
  Id other;
  other.user = "USER2";
  Id id = other;
  std::vector<Id> ids = {Id{}, other};
  for (const auto& change : std::vector<std::function<void(Id&)>>{
           [](Id& i) { i.source = "SRC2"; }, [](Id& i) { i.sequence = 2; }, [](Id& i) { i.recursion = 1; },
           [](Id& i) { i.function = "FUNC2"; }, [](Id& i) { i.domain = "SRV2"; },
           [](Id& i) { i.rgn = "RGN2"; }, [](Id& i) { i.ren = "REN2"; }, [](Id& i) { i.target = "T2"; }}) {
    change(id);
    ids.push_back(id);
  }
  for (const Type& type : request_types()) {
    std::vector<std::string> texts;
    for (const Id& one : ids) {
      const int rc = put_request(type.db_id, one);
      const bool known = std::find(texts.begin(), texts.end(), one.text(type.db_id)) != texts.end();
      EXPECT_EQ(rc, known ? DBE_RECORD_REPLACED : DBE_OK) << one.text(type.db_id);
      if (!known) texts.push_back(one.text(type.db_id));
    }
    EXPECT_EQ(all(type.db_id).size(), texts.size());
  }
}

TEST_F(RequestRecords, TheKeyAloneSaysWhoseRecordItIs) {
  for (const Type& type : request_types()) {
    for (const bool unknown : {false, true}) {
      Id head;
      head.source = unknown ? "NOBODY" : "SRC2";
      head.user = "SOMEBODY";
      head.domain = head.target = unknown ? "NOBODY" : "T3";
      const bytes record = full_record(type.db_id, head);
      const int rc = put_record(type.db_id, Id{}, record);
      EXPECT_EQ(rc, unknown ? DBE_RECORD_REPLACED : DBE_OK) << type.suffix;
      bytes back(type.record_len);
      ASSERT_EQ(get_request(type.db_id, Id{}, back), DBE_OK) << type.suffix;
      EXPECT_EQ(Id::read(type.db_id, back).text(type.db_id), Id{}.text(type.db_id));
      EXPECT_EQ(back.back(), record.back()) << type.suffix;
    }
  }
}

TEST_F(RequestRecords, ARecordShorterThanItsIdentifierIsTheIdentifierAlone) {
  for (const Type& type : request_types()) {
    ASSERT_EQ(put_record(type.db_id, Id{}, bytes(1)), DBE_OK) << type.suffix;
    EXPECT_EQ(all(type.db_id), std::vector<std::string>{Id{}.text(type.db_id)});
    bytes back(type.record_len, 0x77);
    ASSERT_EQ(get_request(type.db_id, Id{}, back), DBE_OK);
    bytes expected = Id{}.of(type.db_id);
    expected.resize(type.record_len);
    EXPECT_EQ(back, expected) << type.suffix;
  }
}

TEST_F(RequestRecords, ANameThatIsUnknownIsTheLookupsOwnCode) {
  for (const Type& type : request_types()) {
    Id id;
    id.source = "NOBODY";
    bytes buffer(type.record_len);
    EXPECT_EQ(put_request(type.db_id, id), DBE_NO_TARGET) << type.suffix;
    EXPECT_EQ(get_request(type.db_id, id, buffer), DBE_NO_TARGET) << type.suffix;
    EXPECT_EQ(del_request(type.db_id, id), DBE_NO_TARGET) << type.suffix;
  }
  Id id;
  id.domain = "NOBODY";
  EXPECT_EQ(put_request(DB_RQD, id), DBE_NO_TARGET);
  EXPECT_EQ(put_request(DB_RQT, id), DBE_NO_TARGET);
  EXPECT_EQ(put_request(DB_RQF, id), DBE_OK) << "a function has no domain";
  id = Id{};
  id.target = std::string(64, 'x');
  EXPECT_EQ(put_request(DB_RQT, id), DBE_NO_TARGET);
  EXPECT_EQ(put_request(DB_RQD, id), DBE_OK);
}

TEST_F(RequestRecords, NamesAndTextsMayFillTheirFields) {
  const std::string name(63, 'n');
  ASSERT_EQ(put(target_test::Record(name).ren("N")), DBE_OK);
  Id id;
  id.user = "ABCDEFGHIJKLMNOP";
  id.function = "abcdefghijklmnop";
  id.rgn = "RRRRRRRR";
  id.ren = "NNNNNNNN";
  id.source = id.domain = id.target = name;
  id.sequence = 0xFFFFFFFFu;
  id.recursion = 0xFFFF;
  for (const Type& type : request_types()) {
    ASSERT_EQ(put_request(type.db_id, id), DBE_OK) << type.suffix;
    EXPECT_EQ(all(type.db_id), std::vector<std::string>{id.text(type.db_id)});
  }
}

TEST_F(RequestRecords, ABufferOfTheIdentifiersLengthIsFilledFromTheKey) {
  for (const Type& type : request_types()) {
    const std::size_t key_fills = type.db_id == DB_RQV ? 616 : type.id_len;
    EXPECT_EQ(int_key_len[type.db_id], key_fills);
    ASSERT_EQ(put_record(type.db_id, Id{}, full_record(type.db_id, Id{})), DBE_OK);
    bytes buffer(key_fills, 0x77);
    bytes expected = Id{}.of(type.db_id);
    expected.resize(key_fills);
    const auto functions = entered([&] { EXPECT_EQ(get_request(type.db_id, Id{}, buffer), DBE_OK); });
    EXPECT_EQ(buffer, expected) << type.suffix;
    EXPECT_EQ(std::count(functions.begin(), functions.end(), "db_read"), 0) << type.suffix;
    bytes shorter(key_fills - 1, 0x77);
    EXPECT_EQ(get_request(type.db_id, Id{}, shorter), DBE_OK);
    EXPECT_EQ(shorter, bytes(key_fills - 1, 0x77)) << "a shorter one is left alone";
    Id other;
    other.sequence = 77;
    EXPECT_EQ(get_request(type.db_id, other, shorter), DBE_NOT_FOUND) << "which is found out first";
  }
}

TEST_F(RequestRecords, ALongRecordIsStoredInPiecesAndGoesWithThem) {
  const bytes vector = full_record(DB_RQV, Id{});
  ASSERT_EQ(put_record(DB_RQV, Id{}, vector), DBE_OK);
  Id next;
  next.sequence = 2;
  ASSERT_EQ(put_request(DB_RQV, next), DBE_OK);
  EXPECT_EQ(all(DB_RQV), (std::vector<std::string>{Id{}.text(DB_RQV), next.text(DB_RQV)}));
  EXPECT_EQ(put_request(DB_RQV, Id{}), DBE_RECORD_REPLACED);
  EXPECT_EQ(all(DB_RQV).size(), 2u);
  EXPECT_EQ(put_record(DB_RQV, Id{}, vector), DBE_RECORD_REPLACED);
  EXPECT_EQ(del_request(DB_RQV, Id{}), DBE_OK);
  EXPECT_EQ(all(DB_RQV), std::vector<std::string>{next.text(DB_RQV)});
}

TEST_F(RequestRecords, AFanoutBlockIsAsLongAsTheRecordSays) {
  for (const unsigned length : {0u, 1u, 24559u, 24560u}) {
    bytes record = full_record(DB_FAN, Id{});
    put_number<std::uint16_t>(record, 124, static_cast<std::uint16_t>(length));
    ASSERT_NE(put_record(DB_FAN, Id{}, record), DBE_IO_ERROR);
    bytes back(25198, 0x77);
    ASSERT_EQ(get_request(DB_FAN, Id{}, back), DBE_OK);
    std::fill(record.begin() + 638 + length, record.end(), static_cast<unsigned char>(0));
    EXPECT_EQ(back, record) << length;
  }
}

TEST_F(RequestRecords, AFanoutBlockThatClaimsMoreThanItsFieldEndsWithTheField) {
  bytes record = full_record(DB_FAN, Id{});
  put_number<std::uint16_t>(record, 124, 65535);
  ASSERT_EQ(put_record(DB_FAN, Id{}, record), DBE_OK);
  bytes back(25198, 0x77);
  ASSERT_EQ(get_request(DB_FAN, Id{}, back), DBE_OK);
  EXPECT_EQ(back[638], record[638]);
  EXPECT_EQ(back[25197], record[25197]);
  // A record that ends inside its block is stored as far as it goes, and read so too.
  record.resize(700);
  ASSERT_EQ(put_record(DB_FAN, Id{}, record), DBE_RECORD_REPLACED);
  bytes part(700, 0x77);
  ASSERT_EQ(get_request(DB_FAN, Id{}, part), DBE_OK);
  EXPECT_EQ(part, record);
}

TEST_F(RequestRecords, AVectorThatClaimsMoreThanItsFieldEndsWithTheField) {
  for (const std::uint32_t claimed : {64001u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    bytes record = full_record(DB_RQV, Id{});
    put_number(record, 616, claimed);
    record.resize(65535);
    const int rc = put_record(DB_RQV, Id{}, record);
    ASSERT_TRUE(rc == DBE_OK || rc == DBE_RECORD_REPLACED || rc == DBE_BUFFER_TOO_SMALL) << rc;
    if (rc == DBE_BUFFER_TOO_SMALL) continue;
    bytes back(64620, 0x77);
    ASSERT_EQ(get_request(DB_RQV, Id{}, back), DBE_OK);
    EXPECT_EQ(back[620], record[620]);
  }
}

TEST_F(RequestRecords, AVectorNeedsARecordThatReachesBehindTheAreaBeforeIt) {
  bytes record = full_record(DB_RQV, Id{});
  put_number<std::uint32_t>(record, 616, 100);
  record.resize(9692);
  ASSERT_EQ(put_record(DB_RQV, Id{}, record), DBE_OK) << "the identifier alone";
  bytes back(64620, 0x77);
  ASSERT_EQ(get_request(DB_RQV, Id{}, back), DBE_OK);
  EXPECT_EQ(number_at<std::uint32_t>(back, 616), 0u);
  // And a get that does not reach behind it gives no vector.
  record = full_record(DB_RQV, Id{});
  put_number<std::uint32_t>(record, 616, 100);
  ASSERT_EQ(put_record(DB_RQV, Id{}, record), DBE_RECORD_REPLACED);
  bytes part(9692, 0x77);
  ASSERT_EQ(get_request(DB_RQV, Id{}, part), DBE_OK);
  EXPECT_EQ(number_at<std::uint32_t>(part, 616), 0u);
  bytes whole(10204, 0x77);
  ASSERT_EQ(get_request(DB_RQV, Id{}, whole), DBE_OK);
  EXPECT_EQ(number_at<std::uint32_t>(whole, 616), 100u);
  EXPECT_TRUE(std::equal(whole.begin() + 620, whole.begin() + 720, record.begin() + 620));
}

TEST_F(RequestRecords, AVectorThatRunsIntoTheAreaWins) {
  const bytes record = full_record(DB_RQV, Id{});
  ASSERT_EQ(put_record(DB_RQV, Id{}, record), DBE_OK);
  bytes back(64620);
  ASSERT_EQ(get_request(DB_RQV, Id{}, back), DBE_OK);
  EXPECT_TRUE(std::equal(back.begin() + 620, back.end(), record.begin() + 620));
}

TEST_F(RequestRecords, DeletionOfAFunctionDeletesItsCorrelator) {
  ASSERT_EQ(put_request(DB_RQF, Id{}), DBE_OK);
  ASSERT_EQ(put_correlator(Id{}, 1), DBE_OK);
  Id other;
  other.function = "OTHER";
  ASSERT_EQ(put_correlator(other, 2), DBE_OK);
  ASSERT_EQ(del_request(DB_RQF, Id{}), DBE_OK);
  EXPECT_FALSE(has_correlator(Id{}));
  EXPECT_TRUE(has_correlator(other));
}

TEST_F(RequestRecords, AFunctionWithoutACorrelatorIsDeleted) {
  ASSERT_EQ(put_request(DB_RQF, Id{}), DBE_OK);
  EXPECT_EQ(del_request(DB_RQF, Id{}), DBE_OK);
  EXPECT_FALSE(there(DB_RQF, Id{}));
}

TEST_F(RequestRecords, AFunctionThatIsNotThereKeepsItsCorrelator) {
  ASSERT_EQ(put_correlator(Id{}, 1), DBE_OK);
  EXPECT_EQ(del_request(DB_RQF, Id{}), DBE_NOT_FOUND);
  EXPECT_TRUE(has_correlator(Id{}));
}

TEST_F(RequestRecords, OnlyAFunctionHasACorrelatorToDelete) {
  ASSERT_EQ(put_correlator(Id{}, 1), DBE_OK);
  for (const std::uint32_t db_id : {DB_RQR, DB_FAN, DB_RQD, DB_RQT, DB_RQV}) {
    ASSERT_EQ(put_request(db_id, Id{}), DBE_OK);
    ASSERT_EQ(del_request(db_id, Id{}), DBE_OK);
  }
  EXPECT_TRUE(has_correlator(Id{}));
}

TEST_F(RequestRecords, NullArgumentsAreRefused) {
  const void* no_key[] = {nullptr};
  const bytes id = Id{}.of(DB_RQT);
  const void* keys[] = {id.data()};
  unsigned char buffer[8] = {};
  EXPECT_EQ(db_get(task, DB_RQT, 1, no_key, buffer, 8), DBE_NOT_FOUND);
  EXPECT_EQ(db_put(task, DB_RQT, 0, keys, buffer, 8), DBE_NOT_FOUND);
  EXPECT_EQ(db_del(task, DB_RQT, 1, nullptr), DBE_NOT_FOUND);
  EXPECT_EQ(db_put(task, DB_RQT, 1, keys, nullptr, 8), DBE_BAD_RECORD);
  EXPECT_EQ(db_get(task, DB_RQT, 1, keys, nullptr, 8), DBE_BAD_RECORD);
}

TEST_F(RequestRecords, APutWithoutMemoryFailsAndStoresNothing) {
  ASSERT_EQ(put_request(DB_RQR, Id{}), DBE_OK);
  Id other;
  other.sequence = 2;
  co_test_fail_malloc(0);
  const int rc = put_request(DB_RQR, other);
  co_test_fail_malloc(-1);
  EXPECT_EQ(rc, DBE_IO_ERROR);
  EXPECT_FALSE(there(DB_RQR, other));
}

}  // namespace
}  // namespace request_test
