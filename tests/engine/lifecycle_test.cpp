// Creating, opening and closing of record files.
#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "engine/engine_handle.h"
#include "engine/psp.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

int open_descriptors() {
  int count = 0;
  DIR* folder = opendir("/proc/self/fd");
  while (readdir(folder)) count++;
  closedir(folder);
  return count;
}

class Lifecycle : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = folder_.file("life");
    descriptors_ = open_descriptors();
  }
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_); }
  void make_file() {
    handle h;
    ASSERT_EQ(h.create(path_), 0);
    ASSERT_EQ(engine::csetfile(h, 4), 0);
    ASSERT_EQ(h.insert(sample(1)), 0);
    ASSERT_EQ(h.close(), 0);
  }
  void set_flag() {
    std::vector<unsigned char> bytes = read_file(path_);
    bytes[1010] = 0xBD;
    bytes[1011] = 0x33;
    write_file(path_, bytes);
  }
  scratch_folder folder_;
  std::string path_;
  int descriptors_ = 0;
};

TEST_F(Lifecycle, CreateLeavesAnExistingFileAlone) {
  write_file(path_, {1, 2, 3});
  handle h;
  EXPECT_EQ(h.create(path_), engine::e_exists);
  EXPECT_EQ(read_file(path_), (std::vector<unsigned char>{1, 2, 3}));
  EXPECT_NE(engine::checkpsp(h), 'O');
}

TEST_F(Lifecycle, CreateRefusesAByteOrderThatIsNone) {
  handle h;
  EXPECT_EQ(h.create(path_, 'S', 0), engine::e_byte_order);
  EXPECT_EQ(h.create(path_, 'S', 4), engine::e_byte_order);
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(Lifecycle, CreateRefusesKeyTablesThatCannotBeAndLeavesNoFile) {
  handle h;
  const engine::key_entry number[] = {{16, 2, {}, nullptr}, {0, 0, {}, nullptr}};
  EXPECT_EQ(h.create(path_, 'S', 3, number), engine::e_key_number);
  const engine::key_entry type[] = {{1, 21, {}, nullptr}, {0, 0, {}, nullptr}};
  EXPECT_EQ(h.create(path_, 'S', 3, type), engine::e_key_table);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(Lifecycle, CreateLeavesNothingButTheFile) {
  make_file();
  int files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder_.path())) files++;
  EXPECT_EQ(files, 1);
}

TEST_F(Lifecycle, CreateFailsInAFolderThatDoesNotExist) {
  handle h;
  EXPECT_EQ(h.create(folder_.file("no/such/folder")), engine::e_not_found);
}

TEST_F(Lifecycle, OpenOfAnAbsentFileFailsAndLeavesTheBlockClosed) {
  handle h;
  EXPECT_EQ(h.open(path_), engine::e_not_found);
  EXPECT_NE(engine::checkpsp(h), 'O');
}

TEST_F(Lifecycle, OpenRefusesAForeignFileAndLeavesTheBlockClosed) {
  write_file(path_, std::vector<unsigned char>(11264, 'x'));
  handle h;
  EXPECT_EQ(h.open(path_), engine::e_foreign_file);
  EXPECT_EQ(engine::checkpsp(h), 'C');
}

TEST_F(Lifecycle, OpenRefusesASetWriteFlagUntilItIsCleared) {
  make_file();
  set_flag();
  handle h;
  EXPECT_EQ(h.open(path_), engine::e_write_flag);
  EXPECT_EQ(engine::checkpsp(h), 'C');
  ASSERT_EQ(engine::_bopen(h, path_.c_str(), 'E', 2), 0);
  EXPECT_EQ(engine::clrwrit(h), 0);
  EXPECT_EQ(engine::cclose(h), 0);
  EXPECT_EQ(h.open(path_), 0);
}

TEST_F(Lifecycle, FailedOpensLeakNeitherSlotsNorDescriptors) {
  make_file();
  set_flag();
  for (int i = 0; i < 250; i++) {
    handle h;
    ASSERT_EQ(h.open(path_), engine::e_write_flag);
  }
  write_file(path_, std::vector<unsigned char>(11264, 'x'));
  for (int i = 0; i < 250; i++) {
    handle h;
    ASSERT_EQ(h.open(path_), engine::e_foreign_file);
  }
  std::filesystem::remove(path_);
  make_file();
  const engine::key_entry other[] = {{1, 3, {}, nullptr}, {0, 0, {}, nullptr}};
  for (int i = 0; i < 250; i++) {
    handle h;
    ASSERT_EQ(h.open(path_, 'S', 2, other), engine::e_key_table);
  }
  handle h;
  EXPECT_EQ(h.open(path_), 0);
}

TEST_F(Lifecycle, OpenComparesTheKeyTableWithTheFile) {
  make_file();
  handle h;
  const engine::key_entry other_type[] = {{1, 3, {}, nullptr}, {0, 0, {}, nullptr}};
  EXPECT_EQ(h.open(path_, 'S', 2, other_type), engine::e_key_table);
  EXPECT_EQ(engine::checkpsp(h), 'C');
  const engine::key_entry number[] = {{16, 0, {}, nullptr}, {0, 0, {}, nullptr}};
  EXPECT_EQ(h.open(path_, 'S', 2, number), engine::e_key_number);
  EXPECT_EQ(h.open(path_, 'S', 2, nullptr), engine::e_key_table);
  const engine::key_entry some[] = {{3, 3, {}, nullptr}, {0, 0, {}, nullptr}};
  EXPECT_EQ(h.open(path_, 'S', 2, some), 0);
}

TEST_F(Lifecycle, AFileWithoutKeyTypesOpensWithoutAKeyTable) {
  handle h;
  const engine::key_entry none[] = {{0, 0, {}, nullptr}};
  ASSERT_EQ(h.create(path_, 'S', 3, none), 0);
  ASSERT_EQ(h.close(), 0);
  EXPECT_EQ(h.open(path_, 'S', 2, nullptr), 0);
  ASSERT_EQ(h.close(), 0);
}

TEST_F(Lifecycle, ABlockThatIsNotOpenIsRefused) {
  handle h;
  sample_fields fields(sample(1));
  EXPECT_EQ(engine::checkpsp(h), 'I');
  EXPECT_EQ(engine::dclose(h), engine::e_bad_handle);
  EXPECT_EQ(engine::cclose(h), engine::e_bad_handle);
  EXPECT_EQ(engine::dflush(h), engine::e_bad_handle);
  EXPECT_EQ(engine::csetfile(h, 4), engine::e_bad_handle);
  EXPECT_EQ(engine::dseq(h, 1, engine::seq_first), engine::e_bad_handle);
  EXPECT_EQ(engine::dinsert(h, fields.list), engine::e_bad_handle);
  EXPECT_EQ(engine::dlock(h), engine::e_bad_handle);
  make_file();
  ASSERT_EQ(h.open(path_), 0);
  ASSERT_EQ(h.close(), 0);
  EXPECT_EQ(engine::checkpsp(h), 'C');
  EXPECT_EQ(engine::dclose(h), engine::e_bad_handle);
  EXPECT_EQ(engine::dseq(h, 1, engine::seq_first), engine::e_bad_handle);
}

TEST_F(Lifecycle, ABlockWithOneMarkWrongIsRefused) {
  make_file();
  handle h;
  ASSERT_EQ(h.open(path_), 0);
  engine::PSP* p = h;
  for (char* mark : {&p->mark_v, &p->mark_a, &p->mark_l, &p->mark_i, &p->mark_d, &p->mark_a2, &p->mark_t, &p->mark_e,
                     &p->state}) {
    const char right = *mark;
    *mark = 'x';
    EXPECT_EQ(engine::checkpsp(h), 'I');
    EXPECT_EQ(engine::dseq(h, 1, engine::seq_first), engine::e_bad_handle);
    EXPECT_EQ(engine::dclose(h), engine::e_bad_handle);
    *mark = right;
  }
  EXPECT_EQ(engine::checkpsp(nullptr), 'I');
  EXPECT_EQ(h.find_name(sample(1).name), 0);
}

TEST_F(Lifecycle, IntegrityLevelsOutsideTheirRangeAreRefused) {
  make_file();
  handle h;
  ASSERT_EQ(h.open(path_), 0);
  EXPECT_EQ(engine::csetfile(h, 5), engine::e_not_found);
  EXPECT_EQ(engine::csetfile(h, -1), engine::e_not_found);
  for (int level = 0; level <= 4; level++) EXPECT_EQ(engine::csetfile(h, level), 0);
}

TEST_F(Lifecycle, TransactionsNeedLevelFour) {
  make_file();
  handle h;
  ASSERT_EQ(h.open(path_, 'E'), 0);
  ASSERT_EQ(engine::csetfile(h, 3), 0);
  EXPECT_EQ(engine::transbeg(h, 3, nullptr), engine::e_level);
  ASSERT_EQ(engine::csetfile(h, 4), 0);
  EXPECT_EQ(engine::transbeg(h, 3, h), engine::e_bad_argument);
  EXPECT_EQ(engine::transend(h, 1), engine::e_not_found);
  EXPECT_EQ(engine::transend(h, 4), engine::e_bad_argument);
  EXPECT_EQ(engine::transend(h, 0), engine::e_bad_argument);
  EXPECT_EQ(engine::transroll(h, nullptr, 0, nullptr), engine::e_trans_none);
}

TEST_F(Lifecycle, CloseWritesAllDirtyNodesAtEveryLevel) {
  for (char access : {'S', 'E'}) {
    for (int level = 0; level <= 4; level++) {
      std::filesystem::remove(path_);
      handle h;
      ASSERT_EQ(h.create(path_, access), 0);
      ASSERT_EQ(engine::csetfile(h, level), 0);
      for (int i = 1; i <= 200; i++) ASSERT_EQ(h.insert(sample(i)), 0);
      ASSERT_EQ(h.close(), 0);
      check_result result = check_file(path_, true);
      EXPECT_EQ(result.outcome, engine::report_outcome::sound) << access << level << result.text();
      handle again;
      ASSERT_EQ(again.open(path_, access), 0);
      for (int i = 1; i <= 200; i++) ASSERT_EQ(again.find_name(sample(i).name), 0) << access << level;
    }
  }
}

TEST_F(Lifecycle, RewritingTheHeaderNeverClearsTheWriteFlag) {
  make_file();
  handle h;
  ASSERT_EQ(h.open(path_, 'E'), 0);
  ASSERT_EQ(engine::csetfile(h, 3), 0);
  set_flag();
  ASSERT_EQ(h.insert(sample(2)), 0);
  ASSERT_EQ(h.close(), 0);
  EXPECT_EQ(h.open(path_), engine::e_write_flag);
}

TEST_F(Lifecycle, ANodeWrittenAtLevelThreeIsOnDiskAtOnce) {
  make_file();
  handle h;
  ASSERT_EQ(h.open(path_, 'E'), 0);
  ASSERT_EQ(engine::csetfile(h, 3), 0);
  ASSERT_EQ(h.insert(sample(2)), 0);
  std::vector<unsigned char> bytes = read_file(path_);
  std::string name = sample(2).name;
  EXPECT_NE(std::search(bytes.begin(), bytes.end(), name.begin(), name.end()), bytes.end());
}

TEST_F(Lifecycle, OneBlockMayServeOneFileAfterAnother) {
  std::string other = folder_.file("other");
  handle h;
  for (const std::string& path : {path_, other}) {
    ASSERT_EQ(h.create(path), 0);
    ASSERT_EQ(engine::csetfile(h, 4), 0);
    for (int i = 1; i <= 40; i++) ASSERT_EQ(h.insert(sample(path == other ? 100 + i : i)), 0);
    ASSERT_EQ(h.close(), 0);
  }
  for (int round = 0; round < 5; round++) {
    ASSERT_EQ(h.open_for_work(path_), 0);
    ASSERT_EQ(h.find_name(sample(7).name), 0);
    ASSERT_EQ(h.find_name(sample(107).name), engine::e_not_found);
    ASSERT_EQ(h.close(), 0);
    ASSERT_EQ(h.open_for_work(other), 0);
    ASSERT_EQ(h.find_name(sample(7).name), engine::e_not_found);
    ASSERT_EQ(h.find_name(sample(107).name), 0);
    ASSERT_EQ(h.close(), 0);
  }
}

TEST_F(Lifecycle, WithoutCacheBlocksNoNodeCanBeReached) {
  make_file();
  engine::set_cache_blocks(0);
  {
    handle h;
    int result = h.open(path_, 'E');
    if (result == 0) result = engine::dseq(h, 1, engine::seq_first);
    EXPECT_LT(result, engine::e_not_found);
    engine::abandon(h);
  }
  engine::set_cache_blocks(10);
  handle h;
  ASSERT_EQ(h.open(path_), 0);
  EXPECT_EQ(h.find_name(sample(1).name), 0);
}

TEST_F(Lifecycle, AReadOnlyHandleChangesNothing) {
  make_file();
  std::vector<unsigned char> before = read_file(path_);
  handle h;
  ASSERT_EQ(h.open(path_, 'S', 1), 0);
  ASSERT_EQ(h.find_name(sample(1).name), 0);
  sample_record found;
  EXPECT_EQ(h.read(&found), 0);
  EXPECT_EQ(found, sample(1));
  sample_fields fields(sample(2));
  EXPECT_EQ(engine::dinsert(h, fields.list), engine::e_read_only);
  EXPECT_EQ(engine::dupdate(h, fields.list), engine::e_read_only);
  EXPECT_EQ(engine::ddelete(h, fields.list), engine::e_read_only);
  EXPECT_EQ(engine::dlock(h), engine::e_read_only);
  EXPECT_EQ(engine::dunlock(h), engine::e_read_only);
  EXPECT_EQ(h.close(), 0);
  EXPECT_EQ(read_file(path_), before);
}

TEST_F(Lifecycle, LongPathsAreOpenedAndDeletedWhole) {
  std::string folder = folder_.file(std::string(120, 'd'));
  std::filesystem::create_directory(folder);
  std::string path = folder + "/" + std::string(100, 'f');
  handle h;
  ASSERT_EQ(h.create(path), 0);
  EXPECT_EQ(h.close(), 0);
  EXPECT_EQ(h.open(path), 0);
  EXPECT_EQ(h.close(), 0);
  handle refused;
  const engine::key_entry type[] = {{1, 21, {}, nullptr}, {0, 0, {}, nullptr}};
  EXPECT_EQ(refused.create(path + "x", 'S', 3, type), engine::e_key_table);
  EXPECT_FALSE(std::filesystem::exists(path + "x"));
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(Lifecycle, TwoFilesWithTheSameNodeNumbersNeverShareABlock) {
  std::string other_path = folder_.file("other");
  handle one, other;
  ASSERT_EQ(one.create(path_), 0);
  ASSERT_EQ(other.create(other_path), 0);
  ASSERT_EQ(engine::csetfile(one, 4), 0);
  ASSERT_EQ(engine::csetfile(other, 4), 0);
  for (int i = 1; i <= 300; i++) {
    ASSERT_EQ(one.insert(sample(i)), 0);
    ASSERT_EQ(other.insert(sample(1000 + i)), 0);
  }
  sample_record found;
  for (int i = 1; i <= 300; i++) {
    ASSERT_EQ(one.find_name(sample(i).name), 0);
    ASSERT_EQ(other.find_name(sample(1000 + i).name), 0);
    ASSERT_EQ(one.read(&found), 0);
    ASSERT_EQ(found, sample(i));
    ASSERT_EQ(other.read(&found), 0);
    ASSERT_EQ(found, sample(1000 + i));
  }
  ASSERT_EQ(one.close(), 0);
  ASSERT_EQ(other.close(), 0);
  EXPECT_EQ(check_file(path_, true).outcome, engine::report_outcome::sound);
  EXPECT_EQ(check_file(other_path, true).outcome, engine::report_outcome::sound);
}

TEST_F(Lifecycle, AbandonGivesUpTheFileWithoutWriting) {
  make_file();
  handle h;
  ASSERT_EQ(h.open(path_, 'E'), 0);
  ASSERT_EQ(engine::csetfile(h, 0), 0);
  std::vector<unsigned char> before = read_file(path_);
  ASSERT_EQ(h.insert(sample(2)), 0);
  engine::abandon(h);
  EXPECT_NE(engine::checkpsp(h), 'O');
  handle again;
  ASSERT_EQ(again.open(path_), 0);
  EXPECT_EQ(again.find_name(sample(2).name), engine::e_not_found);
}

}  // namespace
}  // namespace zvrdb::test
