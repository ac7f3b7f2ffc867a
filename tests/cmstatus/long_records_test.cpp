// Records of many pieces: each list is one read of one logical record, however long.
#include <cstring>

#include "cmstatus/cms_fixture.h"
#include "keyed/keyed.h"

namespace cms_test {
namespace {

using namespace zvrdb;

class LongRecords : public CmStatusTest {
 protected:
  // A catalog of this size, of which the last number alone is taken.
  void catalog_of(std::uint32_t files) {
    struct {
      std::uint32_t db_id;
      std::uint16_t number;
      unsigned char zero[10];
    } key{DB_CAT, static_cast<std::uint16_t>(files - 1), {}};
    std::vector<unsigned char> record(2464);
    std::copy(last.begin(), last.end(), record.begin());
    ASSERT_EQ(index_rc(""), DBE_NO_TARGET);
    ASSERT_EQ(keyed::put_keyed(task, DB_CAT, tcb()->cat_file, &key, record.data(), 2464), DBE_OK);
    ASSERT_EQ(rebuild(), DBE_OK);
    ASSERT_GE(cntl()->num_cat_alloc, files);
    ASSERT_EQ(file_number(last), files - 1);
  }
  // Logical records read by the calls, told by the trace.
  int records_read(const std::function<void()>& calls) {
    EXPECT_EQ(co_set_trace(task, 0x100), CO_OK);
    calls();
    EXPECT_EQ(co_set_trace(task, 0), CO_OK);
    const std::string trace = installation_->read("log/trace.log");
    int count = 0;
    for (std::size_t at = 0; (at = trace.find(" db_read: >>>>>>>>>> ENTRY", at)) != std::string::npos; ++at)
      ++count;
    return count;
  }
  static Body target_body(std::uint32_t files) {
    Body body(std::size_t{files} * 38);
    for (std::uint32_t file = 0; file < files; ++file) {
      body[file * 38] = static_cast<unsigned char>(file);
      body[file * 38 + 1] = static_cast<unsigned char>(file >> 8);
      body[file * 38 + 2] = static_cast<unsigned char>(file % 100);
    }
    return body;
  }
  static Body file_body(std::uint32_t targets) {
    Body body(std::size_t{targets} * 4);
    for (std::uint32_t target = 1; target <= targets; ++target) {
      const std::uint32_t entry = target << 8 | target % 100;
      std::memcpy(body.data() + (target - 1) * 4, &entry, sizeof entry);
    }
    return body;
  }
  const CfName last = cf("LAST.FIX");
};

TEST_F(LongRecords, ThirtyThousandChangeFilesOfATargetAreOneRead) {
  catalog_of(30000);
  ASSERT_EQ(put_target("A"), DBE_OK);
  store(target_record, number("A"), target_body(30000));
  TargetList list{};
  EXPECT_EQ(records_read([&] { list = by_target("A", 30000 * 4); }), 1);
  EXPECT_EQ(list.rc, DBE_OK);
  ASSERT_EQ(list.count, 30000u);
  for (std::uint32_t file = 0; file < 30000; ++file) ASSERT_EQ(list.entries[file], file << 8 | file % 100);
}

TEST_F(LongRecords, SixtyThousandTargetsOfAChangeFileAreOneRead) {
  configure(60001, 60001);
  ASSERT_EQ(rebuild(), DBE_OK);
  cntl()->finitialized = 0;
  ASSERT_EQ(put_target("A"), DBE_OK);
  ASSERT_EQ(put_file(last), DBE_OK);
  ASSERT_EQ(cntl()->num_trgs_allowed, 60001u);
  store(file_record, file_number(last), file_body(60000));
  // As many targets as the record tells of; this task alone looks at the table.
  cntl()->num_trgs_actual = 60000;
  FileList list{};
  const int reads = records_read([&] { list = by_file(last, 60001); });
  cntl()->num_trgs_actual = 1;
  EXPECT_EQ(reads, 2) << "its catalog record is the other one";
  EXPECT_EQ(list.rc, DBE_OK);
  for (std::uint32_t target = 1; target <= 60000; ++target) ASSERT_EQ(list.list[target], target % 100);
}

TEST_F(LongRecords, ReadingAPairReadsOneRecordOfItsTarget) {
  ASSERT_EQ(put_target("A"), DBE_OK);
  ASSERT_EQ(put_file(last), DBE_OK);
  ASSERT_EQ(set("A", last, 7), DBE_OK);
  EXPECT_EQ(records_read([&] { EXPECT_EQ(status("A", last).status(), 7u); }), 2)
      << "its catalog record is the other one";
}

TEST_F(LongRecords, GrowAndAreTakenApartPieceByPiece) {
  catalog_of(3000);
  for (const char* name : {"A", "B"}) ASSERT_EQ(put_target(name), DBE_OK);
  // Seven pieces, of which the last has no room for one more entry.
  constexpr std::uint32_t files = 7 * 15988 / 38;
  Body body = target_body(files);
  for (std::uint32_t file = 0; file < files; ++file) store(file_record, file, {3, 1, 0, 0});
  store(target_record, number("A"), body);
  ASSERT_EQ(set("A", last, 9), DBE_OK);
  EXPECT_EQ(stored_of_target("A")->size(), body.size() + 38);
  EXPECT_EQ(by_target("A", 20000).count, files + 1);
  EXPECT_EQ(status("A", last).status(), 9u);
  ASSERT_EQ(drop("A", last), DBE_OK);
  EXPECT_EQ(status("A", last).rc, DBE_NOT_FOUND);
  EXPECT_EQ(by_target("A", 20000).count, files);
  EXPECT_EQ(del("A"), DBE_OK);
  EXPECT_TRUE(stored_pairs(task).by_target.empty());
  expect_sides_agree();
}

}  // namespace
}  // namespace cms_test
