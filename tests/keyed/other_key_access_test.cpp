// Correlators by either key, and requests by destination, on real files.
#include "keyed/converters.h"
#include "keyed/keyed_files_fixture.h"

namespace zvrtest {
namespace {

using namespace zvrdb;
using namespace zvrdb::keyed;

class Correlators : public KeyedFiles {
 protected:
  static record_bytes correlator(const char* user, std::uint32_t sequence) {
    record_bytes record(184);
    record.text(0, user).text(16, "T2").number<std::uint32_t>(80, 300).number<std::uint16_t>(84, 4).text(
        88, "FUNC");
    record.text(104, "ORIGIN").number<std::uint16_t>(168, 1999).number<std::uint8_t>(170, 12);
    record.number<std::uint32_t>(176, sequence).number<std::uint32_t>(180, 77);
    return record;
  }
  // Both keys in host order.
  record_bytes keys_of(const record_bytes& record) {
    record_bytes keys(124);
    external_sink to = {keys.all().data(), keys.all().data() + 124};
    EXPECT_EQ(unprs_coo_key(task(), DB_COO, nullptr, &to, {record.all().data(), 184}), DBE_OK);
    EXPECT_EQ(unprs_coi_key(task(), DB_COO, nullptr, &to, {record.all().data(), 184}), DBE_OK);
    return keys;
  }
  int put(const record_bytes& record) {
    record_bytes keys = keys_of(record);
    return put_keyed(task(), DB_COO, tcb()->corr_file, keys.all().data(), record.all().data(), 184);
  }
  int get(std::uint32_t db_id, record_bytes* key, std::uint32_t key_len, record_bytes* buffer) {
    return get_keyed_alt(task(), db_id, tcb()->corr_file, key->all().data(), key_len, buffer->all().data(),
                         static_cast<std::uint32_t>(buffer->size()));
  }
};

TEST_F(Correlators, AreFoundByEitherKey) {
  for (std::uint32_t sequence = 1; sequence <= 5; ++sequence)
    ASSERT_EQ(put(correlator(("user" + std::to_string(sequence)).c_str(), sequence)), DBE_OK);
  const record_bytes third = correlator("user3", 3);
  for (const std::uint32_t db_id : {DB_COI, DB_COO}) {
    record_bytes key = keys_of(third);
    record_bytes buffer(184);
    ASSERT_EQ(get(db_id, &key, 124, &buffer), DBE_OK) << db_id;
    EXPECT_EQ(buffer.all(), third.all()) << db_id;
    EXPECT_EQ(key.all(), keys_of(third).all()) << "a key that was found is in host order again";
  }
}

TEST_F(Correlators, TheFirstKeyAloneFindsByOrigin) {
  ASSERT_EQ(put(correlator("user", 1)), DBE_OK);
  record_bytes key(48);
  const record_bytes both = keys_of(correlator("user", 1));
  key.all().assign(both.all().begin(), both.all().begin() + 48);
  const record_bytes before = key;
  record_bytes buffer(184);
  EXPECT_EQ(get(DB_COO, &key, 48, &buffer), DBE_OK);
  EXPECT_EQ(buffer.number_at<std::uint32_t>(176), 1u);
  EXPECT_EQ(key.all(), before.all());
}

TEST_F(Correlators, AKeyThatIsNotFoundStaysInNetworkOrder) {
  record_bytes key = keys_of(correlator("user", 1));
  record_bytes network = key;
  recfile::convert_key_nbo(task(), DB_COO, network.all().data(), recfile::to_network);
  record_bytes buffer(184);
  buffer.fill(0, 184, 'b');
  EXPECT_EQ(get(DB_COO, &key, 124, &buffer), DBE_NOT_FOUND);
  EXPECT_EQ(key.all(), network.all());
  EXPECT_EQ(buffer.all(), std::vector<unsigned char>(184, 'b'));
}

TEST_F(Correlators, AnotherTypeHasNoOtherKey) {
  record_bytes key(124);
  record_bytes buffer(1236);
  EXPECT_EQ(get(DB_USR, &key, 124, &buffer), DBE_BAD_DB_ID);
}

TEST_F(Correlators, AShortBufferIsLeftAndOneOfTheKeyLengthTakesBothKeys) {
  ASSERT_EQ(put(correlator("user", 1)), DBE_OK);
  record_bytes key = keys_of(correlator("user", 1));
  record_bytes shorter(123);
  shorter.fill(0, 123, 'b');
  EXPECT_EQ(get(DB_COO, &key, 124, &shorter), DBE_OK);
  EXPECT_EQ(shorter.all(), std::vector<unsigned char>(123, 'b'));
  key = keys_of(correlator("user", 1));
  record_bytes exact(124);
  EXPECT_EQ(get(DB_COO, &key, 124, &exact), DBE_OK);
  EXPECT_EQ(exact.text_at(0, 16), "user");
  EXPECT_EQ(exact.text_at(16, 64), "T2");
}

TEST_F(Correlators, WithoutMemoryTheCallFailsAndSaysSo) {
  ASSERT_EQ(put(correlator("user", 1)), DBE_OK);
  free_scratch();
  record_bytes key = keys_of(correlator("user", 1));
  record_bytes buffer(184);
  co_test_fail_malloc(0);
  EXPECT_EQ(get(DB_COO, &key, 124, &buffer), DBE_IO_ERROR);
  co_test_fail_malloc(-1);
  EXPECT_EQ(logged(task(), 36355), 1u);
}

class RequestsByDestination : public KeyedFiles {
 protected:
  static constexpr std::uint32_t record_len = 1000;

  record_bytes key_of(std::uint32_t db_id, const record_bytes& record) {
    record_bytes key(124);
    external_sink to = {key.all().data(), key.all().data() + 76};
    EXPECT_EQ(unprs_ur_key(task(), db_id, nullptr, &to, {record.all().data(), record_len}), DBE_OK);
    return key;
  }
  void put(std::uint32_t db_id, const char* user, const char* server, const char* target = "") {
    record_bytes record(record_len);
    record.text(0, user).text(16, "T1").text(88, "FUNC").text(104, server).text(168, target);
    record_bytes key = key_of(db_id, record);
    ASSERT_EQ(put_keyed(task(), db_id, tcb()->req_file, key.all().data(), record.all().data(), record_len),
              DBE_OK);
  }
  record_bytes state(std::uint32_t server, std::uint32_t target, std::uint16_t index_no) {
    const record_bytes key = record_bytes(76).number(64, server).number(68, target);
    record_bytes block(list_state_len(76));
    set_list_state(block.all().data(), key.all().data(), 76, {index_no, 0, 76});
    return block;
  }
  int more(std::uint32_t db_id, record_bytes* block, record_bytes* buffer) {
    return get_more_alt(task(), db_id, tcb()->req_file, block->all().data(), buffer->all().data(),
                        record_len);
  }
  std::vector<std::string> users(std::uint32_t db_id, record_bytes block) {
    std::vector<std::string> found;
    record_bytes buffer(record_len);
    while (found.size() < 100 && more(db_id, &block, &buffer) == DBE_OK)
      found.push_back(buffer.text_at(0, 16));
    return found;
  }
  using Names = std::vector<std::string>;
};

TEST_F(RequestsByDestination, DomainRecordsOfOneServerAreListed) {
  put(DB_RQD, "u1", "T3");
  put(DB_RQD, "u2", "T4");
  put(DB_RQD, "u3", "T3");
  put(DB_RQT, "u1", "T3", "T5");
  EXPECT_EQ(users(DB_RQD, state(3, 0, 2)), (Names{"u1", "u3"}));
  EXPECT_EQ(users(DB_RQD, state(4, 0, 2)), (Names{"u2"}));
  EXPECT_EQ(users(DB_RQD, state(5, 0, 2)), Names{});
  EXPECT_EQ(users(DB_RQD, state(3, 5, 2)), Names{}) << "target records are not domain records";
}

TEST_F(RequestsByDestination, TargetRecordsOfOneTargetAreListed) {
  put(DB_RQD, "u1", "T3");
  put(DB_RQT, "u1", "T3", "T5");
  put(DB_RQT, "u2", "T4", "T5");
  put(DB_RQT, "u3", "T4", "T6");
  EXPECT_EQ(users(DB_RQT, state(0, 5, 3)), (Names{"u1", "u2"}));
  EXPECT_EQ(users(DB_RQT, state(0, 6, 3)), (Names{"u3"}));
  EXPECT_EQ(users(DB_RQT, state(0, 7, 3)), Names{});
}

TEST_F(RequestsByDestination, ARecordFoundByDestinationIsTheWholeRecord) {
  record_bytes record(record_len);
  record.text(0, "u1")
      .text(16, "T1")
      .number<std::uint32_t>(80, 300)
      .text(88, "FUNC")
      .text(104, "T3")
      .text(168, "T5");
  record.number<std::uint32_t>(232, 99).text(236, "text");
  record_bytes key = key_of(DB_RQT, record);
  ASSERT_EQ(put_keyed(task(), DB_RQT, tcb()->req_file, key.all().data(), record.all().data(), record_len),
            DBE_OK);
  record_bytes block = state(0, 5, 3);
  record_bytes back(record_len);
  back.fill(0, record_len, 'x');
  ASSERT_EQ(more(DB_RQT, &block, &back), DBE_OK);
  EXPECT_EQ(back.all(), record.all());
}

TEST_F(RequestsByDestination, AStateThatDoesNotFitIsAnEmptyList) {
  put(DB_RQD, "u1", "T3");
  record_bytes buffer(record_len);
  for (const std::uint16_t index_no : std::vector<std::uint16_t>{0, 1, 3, 4, 65535}) {
    record_bytes block = state(3, 0, index_no);
    EXPECT_EQ(more(DB_RQD, &block, &buffer), DBE_END_OF_LIST) << index_no;
  }
  record_bytes block = state(3, 0, 2);
  EXPECT_EQ(more(DB_RQR, &block, &buffer), DBE_END_OF_LIST);
  EXPECT_EQ(more(DB_RQD, &block.number<std::uint16_t>(list_key_len, 24), &buffer), DBE_END_OF_LIST);
  block = state(3, 0, 2);
  EXPECT_EQ(more(DB_RQD, &block.number<std::uint16_t>(list_init_ok, 0), &buffer), DBE_END_OF_LIST);
}

}  // namespace
}  // namespace zvrtest
