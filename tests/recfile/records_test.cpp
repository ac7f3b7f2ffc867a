// Logical records over engine records: pieces, keys, and what is left when something
// goes wrong.
#include "recfile/record_files_fixture.h"

namespace zvrdb::recfile {
namespace {

using zvrtest::bytes_of;
using zvrtest::pieces_in;
using zvrtest::target_key;

constexpr std::uint32_t group_piece = 16000 - 72;
constexpr std::uint32_t target_piece = 16000 - 12;
constexpr std::uint32_t most = 65535;

class Records : public ::testing::Test {
 protected:
  Records() : files("records") { EXPECT_EQ(0, files.open()); }

  std::vector<unsigned char> record(std::uint32_t number, std::uint32_t data_len) const {
    std::vector<unsigned char> all(12);
    const std::vector<unsigned char> data = bytes_of(data_len, number);
    all.insert(all.end(), data.begin(), data.end());
    return all;
  }
  std::int16_t write(std::uint32_t number, std::uint32_t data_len) {
    target_key key = {4, number, 0};
    const auto all = record(number, data_len);
    return db_write(task(), trg(), &key, all.data(), static_cast<std::uint32_t>(all.size()));
  }
  std::int16_t update(std::uint32_t number, std::uint32_t data_len, unsigned seed) {
    target_key key = {4, number, 0};
    std::vector<unsigned char> all(12);
    const auto data = bytes_of(data_len, seed);
    all.insert(all.end(), data.begin(), data.end());
    return db_update(task(), trg(), &key, all.data(), static_cast<std::uint32_t>(all.size()));
  }
  // The record as db_read gives it, or only its code.
  std::int16_t read(std::uint32_t number, std::vector<unsigned char>* out, std::uint32_t room = most) {
    target_key key = {4, number, 0};
    const std::int16_t rc = db_locate(task(), trg(), &key, KEY_EQ);
    if (rc != DBE_OK) return rc;
    out->assign(room, 0xEE);
    std::uint32_t length = room;
    const std::int16_t read_rc = db_read(task(), trg(), out->data(), &length);
    if (read_rc == DBE_OK) out->resize(length);
    return read_rc;
  }
  void expect_data(std::uint32_t number, std::uint32_t data_len, unsigned seed) {
    std::vector<unsigned char> all;
    ASSERT_EQ(DBE_OK, read(number, &all));
    ASSERT_EQ(12u + data_len, all.size());
    target_key key = {};
    std::memcpy(&key, all.data(), sizeof key);
    EXPECT_EQ(4u, key.db_id);
    EXPECT_EQ(number, key.number);
    EXPECT_EQ(bytes_of(data_len, seed), std::vector<unsigned char>(all.begin() + 12, all.end()));
  }
  // Takes piece 0 of a record out of the file and leaves the others.
  void remove_first_piece(std::uint32_t number) {
    target_key key = {4, number, 0};
    ASSERT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_EQ));
    engine::field list[3] = {{'B', 2, 'U', 0, 12, 1, 0, nullptr},
                             {'B', 'N', 'N', 0, 0, 0, 0, nullptr},
                             {'E', 0, 0, 0, 0, 0, 0, nullptr}};
    ASSERT_EQ(0, engine::dlock(trg()->psp));
    ASSERT_EQ(0, engine::ddelete(trg()->psp, list));
  }
  void* task() { return files.task(); }
  file_entry* trg() { return files.tcb()->trg_file; }

  zvrdb::test::TempInstallation installation;
  zvrtest::file_task files;
};

TEST_F(Records, EmptyDataIsOneEngineRecordAndReadsBackAsTheKeyAlone) {
  ASSERT_EQ(DBE_OK, write(7, 0));
  EXPECT_EQ(1u, pieces_in(trg()));
  expect_data(7, 0, 7);
}

TEST_F(Records, DataOfExactlyOnePieceIsOneEngineRecord) {
  ASSERT_EQ(DBE_OK, write(7, target_piece));
  EXPECT_EQ(1u, pieces_in(trg()));
  expect_data(7, target_piece, 7);
  ASSERT_EQ(DBE_OK, write(8, target_piece + 1));
  EXPECT_EQ(3u, pieces_in(trg()));
  expect_data(8, target_piece + 1, 8);
}

TEST_F(Records, EveryLengthAroundThePieceBordersReadsBack) {
  std::uint32_t number = 1;
  for (std::uint32_t pieces = 0; pieces <= 4; ++pieces)
    for (std::uint32_t around : {0u, 1u, 2u}) {
      const std::uint32_t length = pieces * target_piece + around;
      if (length == 0 || length - 1 > most - 12) continue;
      ASSERT_EQ(DBE_OK, write(number, length - 1)) << length;
      expect_data(number, length - 1, number);
      ++number;
    }
}

TEST_F(Records, TheLongestRecordReadsBackInABufferOfItsLength) {
  ASSERT_EQ(DBE_OK, write(3, most - 12));
  EXPECT_EQ(5u, pieces_in(trg()));
  expect_data(3, most - 12, 3);
}

TEST_F(Records, UpdateFromThreePiecesToOneRemovesTheOthers) {
  ASSERT_EQ(DBE_OK, write(7, 2 * target_piece + 10));
  ASSERT_EQ(3u, pieces_in(trg()));
  ASSERT_EQ(DBE_OK, update(7, 100, 71));
  EXPECT_EQ(1u, pieces_in(trg()));
  expect_data(7, 100, 71);
}

TEST_F(Records, UpdateFromOnePieceToThreeInsertsTheOthers) {
  ASSERT_EQ(DBE_OK, write(7, 100));
  ASSERT_EQ(DBE_OK, update(7, 2 * target_piece + 10, 72));
  EXPECT_EQ(3u, pieces_in(trg()));
  expect_data(7, 2 * target_piece + 10, 72);
}

TEST_F(Records, UpdateAndDeleteOfAMissingRecordAnswerNotFound) {
  EXPECT_EQ(DBE_NOT_FOUND, update(7, 100, 1));
  target_key key = {4, 7, 0};
  EXPECT_EQ(DBE_NOT_FOUND, db_delete(task(), &key, trg()));
  EXPECT_EQ(0u, pieces_in(trg()));
}

TEST_F(Records, WritingARecordThatIsThereFailsAndChangesNothing) {
  ASSERT_EQ(DBE_OK, write(7, 100));
  EXPECT_EQ(DBE_IO_ERROR, write(7, 300));
  EXPECT_EQ(1u, zvrtest::logged(task(), 36441));
  expect_data(7, 100, 7);
  EXPECT_EQ(0, files.tcb()->trans_active[4]);
}

TEST_F(Records, AWriteThatFailsInALaterPieceLeavesNoPiece) {
  // Piece 1 of record 7 is in the way of a record of two pieces.
  target_key stray = {4, 7, 0};
  const auto one_piece = record(7, 10);
  ASSERT_EQ(DBE_OK, db_write(task(), trg(), &stray, one_piece.data(), 22));
  ASSERT_EQ(DBE_OK, update(7, target_piece + 10, 7));
  remove_first_piece(7);
  ASSERT_EQ(1u, pieces_in(trg()));
  EXPECT_EQ(DBE_IO_ERROR, write(7, target_piece + 10));
  EXPECT_EQ(1u, pieces_in(trg()));
  stray = {4, 7, 0};
  EXPECT_EQ(DBE_NOT_FOUND, db_locate(task(), trg(), &stray, KEY_EQ));
}

TEST_F(Records, AWriteThatFailsInsideATransactionIsReturnedWithNothingUndone) {
  ASSERT_EQ(DBE_OK, write(7, target_piece + 10));
  remove_first_piece(7);
  ASSERT_EQ(DBE_OK, start_trans(task(), 4));
  EXPECT_EQ(DBE_IO_ERROR, write(7, target_piece + 20));
  EXPECT_EQ(1, files.tcb()->trans_active[4]);
  EXPECT_EQ(2u, pieces_in(trg())) << "piece 0 of the write stands beside the piece that was in its way";
  EXPECT_EQ(DBE_OK, rollback(task(), 4));
  EXPECT_EQ(1u, pieces_in(trg()));
}

// A second handle of the file, as another program would have it.
class beside {
 public:
  explicit beside(const std::string& path) : buffer_(16384) {
    static const engine::key_entry keys[] = {{1, 2, {}, nullptr}, {0, 0, {}, nullptr}};
    opened_ = engine::dopen(psp(), path.c_str(), buffer_.data(), 16384, 'S', 2, keys) == 0;
  }
  ~beside() { engine::dclose(psp()); }
  // Locks the record of a target's key.
  bool lock_target(unsigned char number) {
    const unsigned char value[13] = {12, 0, 0, 0, 4, 0, 0, 0, number, 0, 0, 0, 0};
    return opened_ && engine::dfind(psp(), 1, value, 2, engine::find_equal) == 0 && engine::dlock(psp()) == 0;
  }

 private:
  engine::PSP* psp() { return reinterpret_cast<engine::PSP*>(block_); }
  alignas(std::max_align_t) unsigned char block_[engine::psp_size] = {};
  std::vector<unsigned char> buffer_;
  bool opened_ = false;
};

TEST_F(Records, ARecordThatAnotherProgramLockedIsNeitherReplacedNorDeleted) {
  ASSERT_EQ(DBE_OK, write(7, 100));
  {
    beside other(installation.base() + "/db/trgcfg");
    ASSERT_TRUE(other.lock_target(7));
    EXPECT_EQ(DBE_IO_ERROR, update(7, 200, 71));
    target_key key = {4, 7, 0};
    EXPECT_EQ(DBE_IO_ERROR, db_delete(task(), &key, trg()));
    EXPECT_EQ(7u, key.number);
    EXPECT_EQ(2u, zvrtest::logged(task(), 36443));
    EXPECT_EQ(0, files.tcb()->trans_active[4]);
    expect_data(7, 100, 7);
  }
  EXPECT_EQ(DBE_OK, update(7, 200, 71));
  expect_data(7, 200, 71);
}

TEST_F(Records, DeleteRemovesAllPiecesAndOnlyThose) {
  ASSERT_EQ(DBE_OK, write(6, 50));
  ASSERT_EQ(DBE_OK, write(7, 3 * target_piece));
  ASSERT_EQ(DBE_OK, write(8, 60));
  target_key key = {4, 7, 0};
  ASSERT_EQ(DBE_OK, db_delete(task(), &key, trg()));
  EXPECT_EQ(2u, pieces_in(trg()));
  expect_data(6, 50, 6);
  expect_data(8, 60, 8);
  key = {4, 8, 0};
  ASSERT_EQ(DBE_OK, db_delete(task(), &key, trg()));
  EXPECT_EQ(1u, pieces_in(trg()));
}

TEST_F(Records, LastEndsOnPieceZeroOfALongRecord) {
  ASSERT_EQ(DBE_OK, write(7, 50));
  ASSERT_EQ(DBE_OK, write(9, 2 * target_piece + 5));
  target_key key = {0, 0, 77};
  ASSERT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_LAST));
  EXPECT_EQ(4u, key.db_id);
  EXPECT_EQ(9u, key.number);
  EXPECT_EQ(0u, key.recnum);
  std::vector<unsigned char> buffer(most);
  std::uint32_t length = most;
  ASSERT_EQ(DBE_OK, db_read(task(), trg(), buffer.data(), &length));
  EXPECT_EQ(12 + 2 * target_piece + 5, length);
}

TEST_F(Records, LastWithoutPieceZeroIsAStorageError) {
  ASSERT_EQ(DBE_OK, write(9, target_piece + 5));
  remove_first_piece(9);
  target_key key = {4, 9, 0};
  EXPECT_EQ(DBE_IO_ERROR, db_locate(task(), trg(), &key, KEY_LAST));
  EXPECT_EQ(1u, zvrtest::logged(task(), 36455));
}

TEST_F(Records, GreaterPassesOverAllPiecesOfTheGivenRecord) {
  ASSERT_EQ(DBE_OK, write(7, 3 * target_piece));
  ASSERT_EQ(DBE_OK, write(9, 10));
  target_key key = {4, 7, 0};
  ASSERT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_GT));
  EXPECT_EQ(9u, key.number);
  EXPECT_EQ(0u, key.recnum);
  EXPECT_EQ(DBE_NOT_FOUND, db_locate(task(), trg(), &key, KEY_GT));
  EXPECT_EQ(4u, key.db_id);
  EXPECT_EQ(9u, key.number);
}

TEST_F(Records, EachOptionFindsItsRecordAndGivesTheKeyBackAsTold) {
  for (std::uint32_t number : {300u, 10u, 20u}) ASSERT_EQ(DBE_OK, write(number, 10));
  target_key key = {0, 0, 0};
  EXPECT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_FIRST));
  EXPECT_EQ(10u, key.number);
  key = {4, 11, 0};
  EXPECT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_GE));
  EXPECT_EQ(20u, key.number);
  key = {4, 20, 0};
  EXPECT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_GE));
  EXPECT_EQ(20u, key.number);
  key = {4, 299, 0};
  EXPECT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_LE));
  EXPECT_EQ(20u, key.number);
  key = {4, 300, 0};
  EXPECT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_LE));
  EXPECT_EQ(300u, key.number);
  key = {4, 9, 0};
  EXPECT_EQ(DBE_NOT_FOUND, db_locate(task(), trg(), &key, KEY_LE));
  EXPECT_EQ(9u, key.number);
  key = {4, 300, 5};
  EXPECT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_EQ));
  EXPECT_EQ(0u, key.recnum);
  key = {4, 301, 0};
  EXPECT_EQ(DBE_NOT_FOUND, db_locate(task(), trg(), &key, KEY_EQ));
  EXPECT_EQ(DBE_NOT_FOUND, db_locate(task(), trg(), &key, KEY_GE));
}

TEST_F(Records, AnEmptyFileHasNoRecordForAnyOption) {
  for (const locate_option option : {KEY_FIRST, KEY_LAST, KEY_EQ, KEY_GE, KEY_GT, KEY_LE}) {
    target_key key = {4, 7, 0};
    EXPECT_EQ(DBE_NOT_FOUND, db_locate(task(), trg(), &key, option)) << option;
    EXPECT_EQ(7u, key.number) << option;
  }
}

TEST_F(Records, ALessOrEqualSearchEndsOnTheLastPieceOfTheRecordBelow) {
  ASSERT_EQ(DBE_OK, write(7, 2 * target_piece + 5));
  target_key key = {4, 8, 0};
  ASSERT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_LE));
  EXPECT_EQ(7u, key.number);
  EXPECT_EQ(2u, key.recnum) << "only a search for the last record goes back to its first piece";
}

TEST_F(Records, AnUnknownOptionIsLoggedAndRefused) {
  target_key key = {4, 1, 0};
  EXPECT_EQ(DBE_IO_ERROR, db_locate(task(), trg(), &key, 7));
  EXPECT_EQ(1u, zvrtest::logged(task(), 36433));
  EXPECT_EQ(4u, key.db_id);
}

TEST_F(Records, AShortBufferTakesWhatWasReadBeforeAndAnswersTooSmall) {
  ASSERT_EQ(DBE_OK, write(7, target_piece + 100));
  std::vector<unsigned char> all;
  const std::uint32_t room = 12 + target_piece + 50;
  EXPECT_EQ(DBE_BUFFER_TOO_SMALL, read(7, &all, room));
  const auto data = bytes_of(target_piece + 100, 7);
  EXPECT_EQ(0, std::memcmp(all.data() + 12, data.data(), target_piece));
  EXPECT_EQ(0xEE, all[12 + target_piece]);
  EXPECT_EQ(0xEE, all[room - 1]);
}

TEST_F(Records, NoReadGoesBeyondTheBufferWhateverItsLength) {
  ASSERT_EQ(DBE_OK, write(7, 2 * target_piece + 77));
  const std::uint32_t whole = 12 + 2 * target_piece + 77;
  for (std::uint32_t room : {12u, 13u, 12 + target_piece - 1, 12 + target_piece, 12 + 2 * target_piece,
                             whole - 1, whole, whole + 1}) {
    // The address sanitizer and the guard bytes stand behind the stated room.
    std::vector<unsigned char> buffer(room + 64, 0xAB);
    target_key key = {4, 7, 0};
    ASSERT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_EQ));
    std::uint32_t length = room;
    EXPECT_EQ(room < whole ? DBE_BUFFER_TOO_SMALL : DBE_OK, db_read(task(), trg(), buffer.data(), &length))
        << room;
    for (std::uint32_t i = room; i < room + 64; ++i) ASSERT_EQ(0xAB, buffer[i]) << room;
  }
}

TEST_F(Records, LengthsBelowTheKeyAreRefusedBeforeTheEngineIsAsked) {
  unsigned char record[124] = {};
  target_key key = {4, 7, 0};
  std::uint32_t length = 11;
  EXPECT_EQ(DBE_IO_ERROR, db_write(task(), trg(), &key, record, 11));
  EXPECT_EQ(DBE_IO_ERROR, db_update(task(), trg(), &key, record, 11));
  EXPECT_EQ(DBE_IO_ERROR, db_read(task(), trg(), record, &length));
  EXPECT_EQ(DBE_IO_ERROR, db_write(task(), files.tcb()->corr_file, record, record, 123));
  EXPECT_EQ(DBE_IO_ERROR, db_update(task(), files.tcb()->corr_file, record, record, 123));
  EXPECT_EQ(0u, pieces_in(trg()));
  EXPECT_EQ(0u, pieces_in(files.tcb()->corr_file));
}

TEST_F(Records, AHandleThatIsNotOpenIsRefused) {
  target_key key = {4, 7, 0};
  unsigned char record[64] = {};
  std::uint32_t length = sizeof record;
  file_entry foreign = {};
  for (file_entry* handle : {static_cast<file_entry*>(nullptr), &foreign}) {
    EXPECT_EQ(DBE_IO_ERROR, db_locate(task(), handle, &key, KEY_EQ));
    EXPECT_EQ(DBE_IO_ERROR, db_read(task(), handle, record, &length));
    EXPECT_EQ(DBE_IO_ERROR, db_write(task(), handle, &key, record, 20));
    EXPECT_EQ(DBE_IO_ERROR, db_update(task(), handle, &key, record, 20));
    EXPECT_EQ(DBE_IO_ERROR, db_delete(task(), &key, handle));
    EXPECT_EQ(DBE_OK, db_close(task(), handle));
  }
}

TEST_F(Records, NoMemoryForTheWorkAreaIsLoggedAndRefused) {
  ASSERT_EQ(DBE_OK, write(7, 10));
  target_key key = {4, 7, 0};
  ASSERT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_EQ));
  unsigned char buffer[64];
  std::uint32_t length = sizeof buffer;
  co_test_fail_malloc(0);
  EXPECT_EQ(DBE_IO_ERROR, db_read(task(), trg(), buffer, &length));
  co_test_fail_malloc(-1);
  EXPECT_NE(std::string::npos, zvrtest::last_logged(task(), 36355).find("DB_READ"));
  ASSERT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_EQ));
  length = sizeof buffer;
  EXPECT_EQ(DBE_OK, db_read(task(), trg(), buffer, &length));
}

TEST_F(Records, KeysStandInTheFileInNetworkOrderButForRecnum) {
  ASSERT_EQ(DBE_OK, write(0x01020304, target_piece + 1));
  target_key key = {4, 0x01020304, 0};
  ASSERT_EQ(DBE_OK, db_locate(task(), trg(), &key, KEY_EQ));
  const unsigned char piece0[13] = {12, 0, 0, 0, 4, 1, 2, 3, 4, 0, 0, 0, 0};
  EXPECT_EQ(0, std::memcmp(piece0, engine::current_key(trg()->psp), sizeof piece0));
  ASSERT_EQ(0, engine::dseq(trg()->psp, 1, engine::seq_next));
  unsigned char piece1[13];
  std::memcpy(piece1, piece0, sizeof piece1);
  const std::uint32_t one = 1;
  std::memcpy(piece1 + 9, &one, sizeof one);
  EXPECT_EQ(0, std::memcmp(piece1, engine::current_key(trg()->psp), sizeof piece1));
}

struct request_key {
  unsigned char bytes[76] = {};
  void put(unsigned offset, std::uint32_t value) { std::memcpy(bytes + offset, &value, sizeof value); }
};

TEST_F(Records, ARequestRecordIsFoundByServerAndByTargetNumber) {
  file_entry* req = files.tcb()->req_file;
  request_key key;
  key.put(0, 21);
  key.put(24, 5);
  key.put(64, 0x0102);
  key.put(68, 0x0304);
  unsigned char record[76 + 20] = {};
  std::memset(record + 76, 0x55, 20);
  ASSERT_EQ(DBE_OK, db_write(task(), req, key.bytes, record, sizeof record));
  const unsigned char by_server[9] = {8, 0, 0, 1, 2, 0, 0, 3, 4};
  EXPECT_EQ(0, engine::dfind(req->psp, 2, by_server, 2, engine::find_equal));
  // Key 3 holds the bytes of the key in network order, read as a native number.
  const unsigned char by_target[4] = {0, 0, 3, 4};
  EXPECT_EQ(0, engine::dfind(req->psp, 3, by_target, 5, engine::find_equal));
}

TEST_F(Records, AnUpdateNeverMovesARequestInItsOtherKeys) {
  file_entry* req = files.tcb()->req_file;
  request_key key;
  key.put(0, 21);
  key.put(64, 7);
  key.put(68, 9);
  std::vector<unsigned char> record(76 + 10);
  ASSERT_EQ(DBE_OK, db_write(task(), req, key.bytes, record.data(), 86));
  record.resize(76 + 2 * (16000 - 76) + 3);
  ASSERT_EQ(DBE_OK,
            db_update(task(), req, key.bytes, record.data(), static_cast<std::uint32_t>(record.size())));
  // Three pieces, all under the same values of keys 2 and 3.
  const unsigned char by_target[4] = {0, 0, 0, 9};
  unsigned found = 0;
  for (int code = engine::dfind(req->psp, 3, by_target, 5, engine::find_equal); code == 0 && found < 10;
       code = engine::dseq(req->psp, 3, engine::seq_next))
    ++found;
  EXPECT_EQ(3u, found);
}

TEST_F(Records, ACorrelatorIsFoundByItsSnaKey) {
  file_entry* corr = files.tcb()->corr_file;
  unsigned char key[124] = {};
  const std::uint32_t sequence = 0x01020304;
  std::memcpy(key + 48, "ORIGIN", 6);
  std::memcpy(key + 120, &sequence, 4);
  unsigned char before[124];
  std::memcpy(before, key, sizeof key);
  unsigned char record[130] = {};
  std::memcpy(record, key, sizeof key);
  ASSERT_EQ(DBE_OK, db_write(task(), corr, key, record, sizeof record));
  unsigned char sna[77] = {76};
  std::memcpy(sna + 1, "ORIGIN", 6);
  sna[73] = 1, sna[74] = 2, sna[75] = 3, sna[76] = 4;
  EXPECT_EQ(0, engine::dfind(corr->psp, 2, sna, 2, engine::find_equal));
  // The key is back in host order but for its recnum, the number of the next piece.
  EXPECT_EQ(0, std::memcmp(before + 48, key + 48, 76));
  // Deletion takes a key of full length too.
  EXPECT_EQ(DBE_OK, db_delete(task(), key, corr));
  EXPECT_EQ(0u, pieces_in(corr));
}

TEST_F(Records, AnUpdateNeverMovesACorrelatorInItsSecondKey) {
  file_entry* corr = files.tcb()->corr_file;
  unsigned char key[124] = {};
  std::memcpy(key + 48, "ORIGIN", 6);
  std::vector<unsigned char> record(124 + 10, 'a');
  ASSERT_EQ(DBE_OK, db_write(task(), corr, key, record.data(), 134));
  std::memcpy(key + 48, "OTHERS", 6);
  record.assign(124 + 20, 'b');
  ASSERT_EQ(DBE_OK, db_update(task(), corr, key, record.data(), 144));
  unsigned char sna[77] = {76};
  std::memcpy(sna + 1, "ORIGIN", 6);
  ASSERT_EQ(0, engine::dfind(corr->psp, 2, sna, 2, engine::find_equal));
  std::vector<unsigned char> data(16384);
  engine::field list[4] = {{'B', 2, 'U', 0, 48, 1, 0, nullptr},
                           {'B', 2, 'U', 0, 76, 2, 0, nullptr},
                           {'B', 'N', 'N', 0, 0, 0, 0, data.data()},
                           {'E', 0, 0, 0, 0, 0, 0, nullptr}};
  ASSERT_EQ(0, engine::dread(corr->psp, list));
  EXPECT_EQ(20, list[2].flen) << "the data begins behind both keys";
  EXPECT_EQ('b', data[19]);
  std::memcpy(sna + 1, "OTHERS", 6);
  EXPECT_NE(0, engine::dfind(corr->psp, 2, sna, 2, engine::find_equal));
}

TEST_F(Records, TheKeyOfTheCallCountsAndNotTheOneInTheRecord) {
  target_key key = {5, 77, 0};
  unsigned char record[20];
  std::memset(record, 0x99, sizeof record);
  ASSERT_EQ(DBE_OK, db_write(task(), trg(), &key, record, sizeof record));
  target_key found = {0, 0, 0};
  ASSERT_EQ(DBE_OK, db_locate(task(), trg(), &found, KEY_FIRST));
  EXPECT_EQ(5u, found.db_id);
  EXPECT_EQ(77u, found.number);
}

TEST_F(Records, AStoredLengthIsNotBelievedBeyondItsBytes) {
  // An engine record whose data is longer than any piece of this layer.
  unsigned char key[12] = {0, 0, 0, 4, 0, 0, 0, 7, 0, 0, 0, 0};
  std::vector<unsigned char> data(16300, 0x31);
  engine::field list[3] = {{'B', 2, 'U', 0, 12, 1, 0, key},
                           {'B', 'N', 'N', 0, static_cast<std::int16_t>(data.size()), 0, 0, data.data()},
                           {'E', 0, 0, 0, 0, 0, 0, nullptr}};
  ASSERT_EQ(0, engine::dinsert(trg()->psp, list));
  std::vector<unsigned char> out;
  EXPECT_EQ(DBE_BUFFER_TOO_SMALL, read(7, &out, 16100));
  ASSERT_EQ(DBE_OK, read(7, &out));
  EXPECT_EQ(12u + data.size(), out.size());
  EXPECT_EQ(DBE_OK, update(7, 40, 1));
  expect_data(7, 40, 1);
}

TEST_F(Records, RecordsOfGroupsArePiecedByTheirLongerKey) {
  file_entry* tg = files.tcb()->tg_file;
  unsigned char key[72] = {};
  const std::uint32_t db_id = 6;
  std::memcpy(key, &db_id, 4);
  std::memcpy(key + 4, "GROUP", 5);
  std::vector<unsigned char> record(72 + group_piece + 1);
  ASSERT_EQ(DBE_OK, db_write(task(), tg, key, record.data(), static_cast<std::uint32_t>(record.size())));
  EXPECT_EQ(2u, pieces_in(tg));
  EXPECT_EQ(72u, key_length(tg));
}

}  // namespace
}  // namespace zvrdb::recfile
