// get, put and delete by key, on real files.
#include <zvrdb/records.h>

#include "keyed/converters.h"
#include "keyed/keyed_files_fixture.h"
#include "recfile/file_table.h"

namespace zvrtest {
namespace {

using namespace zvrdb;
using namespace zvrdb::keyed;

class KeyedAccess : public KeyedFiles {
 protected:
  int put_profile(const std::string& name, unsigned char right) {
    record_bytes key = name_key(DB_APR, name);
    record_bytes record = record_bytes(28).text(0, name).fill(16, 12, right);
    return put_keyed(task(), DB_APR, tcb()->apr_file, key.all().data(), record.all().data(), 28);
  }
  int get_profile(const std::string& name, record_bytes* buffer) {
    record_bytes key = name_key(DB_APR, name);
    return get_keyed(task(), DB_APR, tcb()->apr_file, key.all().data(), buffer->all().data(),
                     static_cast<std::uint32_t>(buffer->size()));
  }
};

TEST_F(KeyedAccess, APutTellsNewFromReplaced) {
  EXPECT_EQ(put_profile("ONE", 1), DBE_OK);
  EXPECT_EQ(put_profile("ONE", 2), DBE_RECORD_REPLACED);
  EXPECT_EQ(put_profile("TWO", 3), DBE_OK);
  record_bytes buffer(28);
  ASSERT_EQ(get_profile("ONE", &buffer), DBE_OK);
  EXPECT_EQ(buffer.text_at(0, 16), "ONE");
  EXPECT_EQ(buffer[27], 2);
}

TEST_F(KeyedAccess, AnUnknownKeyIsNotFoundAndLeavesTheBufferWhateverItsLength) {
  ASSERT_EQ(put_profile("ONE", 1), DBE_OK);
  for (const std::size_t length : {0u, 5u, 16u, 28u}) {
    record_bytes buffer(length);
    buffer.fill(0, length, 'b');
    EXPECT_EQ(get_profile("NONE", &buffer), DBE_NOT_FOUND);
    EXPECT_EQ(buffer.all(), std::vector<unsigned char>(length, 'b'));
  }
}

TEST_F(KeyedAccess, ABufferShorterThanTheKeyFieldsStaysAsItIs) {
  ASSERT_EQ(put_profile("ONE", 1), DBE_OK);
  record_bytes buffer(15);
  buffer.fill(0, 15, 'b');
  EXPECT_EQ(get_profile("ONE", &buffer), DBE_OK);
  EXPECT_EQ(buffer.all(), std::vector<unsigned char>(15, 'b'));
}

TEST_F(KeyedAccess, ABufferOfTheKeyFieldsIsFilledWithoutReadingOrAllocating) {
  ASSERT_EQ(put_profile("ONE", 1), DBE_OK);
  free_scratch();
  record_bytes buffer(16);
  buffer.fill(0, 16, 'b');
  co_test_fail_malloc(0);
  EXPECT_EQ(get_profile("ONE", &buffer), DBE_OK);
  co_test_fail_malloc(-1);
  EXPECT_EQ(buffer.all(), record_bytes(16).text(0, "ONE").all());
  EXPECT_EQ(tcb()->scratch, nullptr);
}

TEST_F(KeyedAccess, ABufferOneByteLongerIsReadFromTheRecord) {
  ASSERT_EQ(put_profile("ONE", 1), DBE_OK);
  record_bytes buffer(17);
  EXPECT_EQ(get_profile("ONE", &buffer), DBE_OK);
  EXPECT_EQ(buffer[16], 0) << "the last byte of a field that is cut is a NUL";
  EXPECT_NE(tcb()->scratch, nullptr) << "the record was read";
  record_bytes longer(18);
  EXPECT_EQ(get_profile("ONE", &longer), DBE_OK);
  EXPECT_EQ(longer[16], 1);
}

TEST_F(KeyedAccess, TheWholeBufferIsClearedBeforeItIsFilledAndNothingBehindIt) {
  ASSERT_EQ(put_profile("ONE", 1), DBE_OK);
  record_bytes key = name_key(DB_APR, "ONE");
  record_bytes buffer(200);
  buffer.fill(0, 200, 'b');
  ASSERT_EQ(get_keyed(task(), DB_APR, tcb()->apr_file, key.all().data(), buffer.all().data(), 100), DBE_OK);
  for (std::size_t i = 28; i < 100; ++i) ASSERT_EQ(buffer[i], 0);
  for (std::size_t i = 100; i < 200; ++i) ASSERT_EQ(buffer[i], 'b');
}

TEST_F(KeyedAccess, ADeletedRecordIsGone) {
  ASSERT_EQ(put_profile("ONE", 1), DBE_OK);
  record_bytes key = name_key(DB_APR, "ONE");
  EXPECT_EQ(del_keyed(task(), DB_APR, tcb()->apr_file, key.all().data()), DBE_OK);
  EXPECT_EQ(del_keyed(task(), DB_APR, tcb()->apr_file, key.all().data()), DBE_NOT_FOUND);
  record_bytes buffer(28);
  EXPECT_EQ(get_profile("ONE", &buffer), DBE_NOT_FOUND);
}

TEST_F(KeyedAccess, TheKeyGivenIsTheOneStoredUnderWhateverTheRecordSays) {
  record_bytes key = name_key(DB_APR, "KEY");
  record_bytes record = record_bytes(28).text(0, "RECORD").fill(16, 12, 5);
  ASSERT_EQ(put_keyed(task(), DB_APR, tcb()->apr_file, key.all().data(), record.all().data(), 28), DBE_OK);
  record_bytes buffer(28);
  ASSERT_EQ(get_profile("KEY", &buffer), DBE_OK);
  EXPECT_EQ(buffer.text_at(0, 16), "KEY");
  EXPECT_EQ(get_profile("RECORD", &buffer), DBE_NOT_FOUND);
}

TEST_F(KeyedAccess, AnUnknownNameIsToldBeforeTheRecordIsSought) {
  record_bytes key = target_key(DB_PRM, 3);
  record_bytes record = record_bytes(200).text(0, "nobody");
  EXPECT_EQ(put_keyed(task(), DB_PRM, tcb()->trg_file, key.all().data(), record.all().data(), 200),
            DBE_NO_TARGET);
  EXPECT_EQ(recfile::db_locate(task(), tcb()->trg_file, key.all().data(), recfile::KEY_EQ), DBE_NOT_FOUND);
}

TEST_F(KeyedAccess, ARecordOfSeveralPiecesComesBackWhole) {
  record_bytes record = record_bytes(62812).text(0, "T3").number<std::uint16_t>(64, 1000);
  for (std::size_t i = 0; i < 1000; ++i) record.text(68 + 62 * i, "parameter " + std::to_string(i));
  record_bytes key = target_key(DB_PRM, 3);
  ASSERT_EQ(put_keyed(task(), DB_PRM, tcb()->trg_file, key.all().data(), record.all().data(), 62812), DBE_OK);
  EXPECT_EQ(pieces_in(tcb()->trg_file), 4u);
  record_bytes back(62812);
  back.fill(0, 62812, 'x');
  ASSERT_EQ(get_keyed(task(), DB_PRM, tcb()->trg_file, key.all().data(), back.all().data(), 62812), DBE_OK);
  EXPECT_EQ(back.all(), record.all());
  record.number<std::uint16_t>(64, 1).fill(68 + 62, 62 * 999, 0);
  ASSERT_EQ(put_keyed(task(), DB_PRM, tcb()->trg_file, key.all().data(), record.all().data(), 62812),
            DBE_RECORD_REPLACED);
  EXPECT_EQ(pieces_in(tcb()->trg_file), 1u);
  ASSERT_EQ(get_keyed(task(), DB_PRM, tcb()->trg_file, key.all().data(), back.all().data(), 62812), DBE_OK);
  EXPECT_EQ(back.all(), record.all());
}

TEST_F(KeyedAccess, AMobileClientCutBeforeItsStatusIsStoredWithAStatusOfZero) {
  record_bytes record =
      record_bytes(147).text(0, "T2").number<std::uint8_t>(144, 16).number<std::uint8_t>(145, 5);
  record_bytes key = target_key(DB_TRG, 2);
  ASSERT_EQ(put_keyed(task(), DB_TRG, tcb()->trg_file, key.all().data(), record.all().data(), 147), DBE_OK);
  record_bytes back(21724);
  ASSERT_EQ(get_keyed(task(), DB_TRG, tcb()->trg_file, key.all().data(), back.all().data(), 21724), DBE_OK);
  EXPECT_EQ(back[144], 16);
  EXPECT_EQ(back[145], 5);
  EXPECT_EQ(back[147], 0);
}

TEST_F(KeyedAccess, WithoutMemoryForTheWorkAreaAGetAndAPutFailAndSaySo) {
  ASSERT_EQ(put_profile("ONE", 1), DBE_OK);
  free_scratch();
  record_bytes buffer(28);
  co_test_fail_malloc(0);
  EXPECT_EQ(get_profile("ONE", &buffer), DBE_IO_ERROR);
  co_test_fail_malloc(0);
  EXPECT_EQ(put_profile("ONE", 2), DBE_IO_ERROR);
  co_test_fail_malloc(-1);
  EXPECT_EQ(logged(task(), 36355), 2u);
  EXPECT_NE(last_logged(task(), 36355).find("temp ext buffer"), std::string::npos);
  ASSERT_EQ(get_profile("ONE", &buffer), DBE_OK) << "the next call makes the area";
  EXPECT_EQ(buffer[16], 1) << "nothing was written";
}

TEST_F(KeyedAccess, ATypeWithoutATableCannotBeStored) {
  record_bytes key = target_key(DB_CMS, 3);
  record_bytes record(100);
  EXPECT_EQ(put_keyed(task(), DB_CMS, tcb()->cms_file, key.all().data(), record.all().data(), 100),
            DBE_BAD_RECORD);
  EXPECT_EQ(logged(task(), 36453), 1u);
}

TEST_F(KeyedAccess, ARecordThatCannotBeConvertedIsToldWithItsTypeOrWhatIsWrongInIt) {
  record_bytes request =
      record_bytes(10204).text(16, "T1").text(104, "T2").text(168, "T3").number<std::uint16_t>(520, 5);
  std::vector<unsigned char> stored = unparse(task(), DB_RQT, request.all()).bytes;
  EXPECT_NE(last_logged(task(), 36454).find("type 5 "), std::string::npos) << "stored as no report";
  const std::uint16_t unknown = 7;
  std::memcpy(stored.data() + 76 + 4 + 1 + 28, &unknown, sizeof unknown);
  EXPECT_EQ(parse(task(), DB_RQT, stored, 10204).rc, DBE_BAD_RECORD);
  EXPECT_NE(last_logged(task(), 36454).find("type 7 "), std::string::npos);
  EXPECT_EQ(unparse(task(), DB_APR, std::vector<unsigned char>(28), 30).rc, DBE_BUFFER_TOO_SMALL);
  EXPECT_NE(last_logged(task(), 36456).find("authorization profile"), std::string::npos)
      << last_logged(task(), 36456);
  unsigned char key[76];
  external_sink to = {key, key + sizeof key};
  EXPECT_EQ(unprs_ur_key(task(), DB_USR, nullptr, &to, {request.all().data(), 232}), DBE_BAD_DB_ID);
  EXPECT_NE(last_logged(task(), 36366).find("number 22 "), std::string::npos);
}

}  // namespace
}  // namespace zvrtest
