// A companion file: the same as the file after each operation of a transaction.
#include <gtest/gtest.h>

#include <filesystem>

#include "engine/engine_handle.h"
#include "engine/every_record.h"
#include "engine/faulty_os.h"
#include "engine/psp.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

struct companion_case {
  const char* name;
  char access;
  int type;
  engine::journal_use journal;      // of the file
  engine::journal_use companion;    // of the companion
};

class Companion : public ::testing::TestWithParam<companion_case> {
 protected:
  void SetUp() override {
    h_.journal = GetParam().journal;
    other_.journal = GetParam().companion;
    ASSERT_EQ(h_.create(path_, GetParam().access), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    for (int i = 1; i <= 60; i++) ASSERT_EQ(h_.insert(sample(i, i % 9 ? 30 : 1500)), 0);
    for (int i = 1; i <= 20; i++) {
      ASSERT_EQ(h_.find_name(sample(i).name), 0);
      ASSERT_EQ(h_.remove(), 0);
    }
    copy_file();
  }
  void TearDown() override {
    for (handle* h : {&h_, &other_}) {
      if (engine::checkpsp(*h) != 'O') continue;
      EXPECT_EQ(h->close(), 0);
    }
    for (const std::string& file : {path_, copy_}) {
      check_result result = check_file(file, true);
      EXPECT_EQ(result.outcome, engine::report_outcome::sound) << file << result.text();
    }
  }
  void copy_file() {
    ASSERT_EQ(h_.close(), 0);
    std::filesystem::copy_file(path_, copy_, std::filesystem::copy_options::overwrite_existing);
    ASSERT_EQ(h_.open(path_, GetParam().access), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    ASSERT_EQ(other_.open(copy_, GetParam().access), 0);
  }
  void expect_same_records() { EXPECT_EQ(all_records(&h_), all_records(&other_)); }
  // Byte for byte, but for the generation.
  void expect_same_bytes() {
    ASSERT_EQ(h_.close(), 0);
    ASSERT_EQ(other_.close(), 0);
    const std::vector<unsigned char> a = read_file(path_);
    const std::vector<unsigned char> b = read_file(copy_);
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t at = 4; at < a.size(); at++) ASSERT_EQ(a[at], b[at]) << "byte " << at << " of node " << (static_cast<int>(at) - 1024) / 1024;
  }
  int begin() { return engine::transbeg(h_, GetParam().type, other_); }
  void work(int from, int to) {
    for (int i = from; i <= to; i++) ASSERT_EQ(h_.insert(sample(i, i % 9 ? 30 : 1500)), 0);
    for (int i = 25; i <= 35; i++) {
      if (h_.find_name(sample(i).name) != 0) continue;
      ASSERT_EQ(h_.remove(), 0);
    }
    ASSERT_EQ(h_.find_name(sample(50).name), 0);
    ASSERT_EQ(h_.update(sample(50, 2000)), 0);
  }
  scratch_folder folder_;
  std::string path_ = folder_.file("file");
  std::string copy_ = folder_.file("copy");
  handle h_, other_;
};

constexpr auto off = engine::journal_use::off;
constexpr auto on = engine::journal_use::on;
INSTANTIATE_TEST_SUITE_P(Files, Companion,
                         ::testing::Values(companion_case{"Type1", 'S', 1, off, off}, companion_case{"Type2", 'S', 2, off, off},
                                           companion_case{"ExclusiveType1", 'E', 1, off, off},
                                           companion_case{"JournalType1", 'S', 1, on, off},
                                           companion_case{"JournalsType1", 'S', 1, on, on},
                                           companion_case{"CompanionsJournalType2", 'S', 2, off, on}),
                         [](const auto& a) { return a.param.name; });

TEST_P(Companion, IsTheSameAfterEachOperationAndByteForByteAtTheEnd) {
  ASSERT_EQ(begin(), 0);
  expect_same_records();
  work(100, 160);
  expect_same_records();
  ASSERT_EQ(h_.insert(sample(300)), 0);
  EXPECT_EQ(other_.find_name(sample(300).name), 0);
  EXPECT_EQ(other_.get()->intlevel, 4);
  EXPECT_EQ(other_.get()->transhead, -1);
  ASSERT_EQ(engine::transend(h_, 1), 0);
  expect_same_records();
  expect_same_bytes();
}

TEST_P(Companion, IsAWholeFileInTheMiddleOfTheTransaction) {
  ASSERT_EQ(begin(), 0);
  work(100, 160);
  const records state = all_records(&h_);
  const std::string taken = folder_.file("taken");
  std::filesystem::copy_file(copy_, taken);
  if (GetParam().companion == off) {
    check_result result = check_file(taken, true);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
    handle alone;
    ASSERT_EQ(alone.open_for_work(taken), 0);
    EXPECT_EQ(engine::transstat(alone), 0);
    EXPECT_EQ(all_records(&alone), state);
    EXPECT_EQ(alone.insert(sample(400)), 0);
  }
  ASSERT_EQ(engine::transend(h_, 1), 0);
  EXPECT_EQ(all_records(&other_), state);
}

TEST_P(Companion, GetsTheChainThatStaysAllocatedOrIsKept) {
  for (const int mode : {2, 3}) {
    ASSERT_EQ(begin(), 0) << mode;
    work(100 * mode, 100 * mode + 40);
    ASSERT_EQ(engine::transend(h_, mode), 0);
    expect_same_records();
    EXPECT_EQ(engine::transstat(h_), mode == 2 ? engine::e_trans_empty : 0);
    EXPECT_EQ(other_.get()->savedhead, h_.get()->savedhead);
  }
  expect_same_bytes();
}

TEST_P(Companion, GoesBackWithTheFileUnlessNothingWasLogged) {
  const records before = all_records(&h_);
  ASSERT_EQ(begin(), 0);
  work(100, 140);
  const records after = all_records(&h_);
  const bool logged = GetParam().type == 1;
  EXPECT_EQ(engine::transroll(h_, nullptr, 0, nullptr), logged ? 0 : engine::e_trans_none);
  if (!logged) {
    EXPECT_EQ(engine::transend(h_, 1), 0);
  }
  EXPECT_EQ(all_records(&h_), logged ? before : after);
  expect_same_records();
  EXPECT_EQ(engine::transstat(h_), 0);
}

TEST_P(Companion, StaysOneThroughARollBackThatBeginsTheNextTransaction) {
  if (GetParam().type == 2) {
    ASSERT_EQ(begin(), 0);
    EXPECT_EQ(engine::transroll(h_, nullptr, 2, other_), engine::e_trans_none);
    ASSERT_EQ(engine::transend(h_, 1), 0);
    return;
  }
  ASSERT_EQ(begin(), 0);
  work(100, 120);
  handle third;
  EXPECT_EQ(engine::transroll(h_, nullptr, 1, third), engine::e_bad_handle);
  ASSERT_EQ(engine::transroll(h_, nullptr, 1, other_), 0);
  expect_same_records();
  work(100, 140);
  expect_same_records();
  ASSERT_EQ(engine::transend(h_, 1), 0);
  expect_same_records();
}

TEST_P(Companion, HasToBeAHandleOfACopy) {
  EXPECT_EQ(engine::transbeg(h_, GetParam().type, nullptr), engine::e_bad_handle);
  EXPECT_EQ(engine::transbeg(h_, GetParam().type, h_), engine::e_bad_handle);
  EXPECT_EQ(engine::transbeg(h_, 3, other_), engine::e_bad_argument);
  ASSERT_EQ(other_.insert(sample(500)), 0);
  EXPECT_EQ(begin(), engine::e_key_table);
  ASSERT_EQ(other_.close(), 0);
  EXPECT_EQ(begin(), engine::e_bad_handle);
  ASSERT_EQ(other_.open(copy_, 'S', 1), 0);
  EXPECT_EQ(begin(), engine::e_bad_handle);   // read-only
  EXPECT_EQ(engine::transstat(h_), 0);
  EXPECT_EQ(h_.insert(sample(501)), 0);
}

TEST_P(Companion, ThatCannotBeWrittenEndsTheCopyAndLeavesTheFileWhole) {
  ASSERT_EQ(begin(), 0);
  work(100, 110);
  const records in_copy = all_records(&other_);
  ASSERT_EQ(other_.close(), 0);
  EXPECT_EQ(h_.insert(sample(200)), engine::e_bad_handle);
  EXPECT_EQ(h_.insert(sample(201)), engine::e_bad_handle);
  EXPECT_EQ(h_.find_name(sample(200).name), 0);
  EXPECT_EQ(engine::transend(h_, 1), engine::e_bad_handle);
  EXPECT_EQ(engine::transstat(h_), 0);
  EXPECT_EQ(h_.insert(sample(202)), 0);   // no companion any more
  ASSERT_EQ(other_.open(copy_, GetParam().access), 0);
  EXPECT_EQ(all_records(&other_), in_copy);
}

TEST(CompanionLog, NamesTheNodesThatAnOperationWrote) {
  scratch_folder folder;
  const std::string path = folder.file("file");
  const std::string copy = folder.file("copy");
  handle h, other;
  ASSERT_EQ(h.create(path, 'E'), 0);
  ASSERT_EQ(h.close(), 0);
  std::filesystem::copy_file(path, copy);
  ASSERT_EQ(h.open(path, 'E'), 0);
  ASSERT_EQ(engine::csetfile(h, 4), 0);
  ASSERT_EQ(other.open(copy, 'E'), 0);
  for (const int type : {1, 2}) {
    ASSERT_EQ(engine::transbeg(h, type, other), 0);
    ASSERT_EQ(h.insert(sample(type)), 0);
    const std::vector<unsigned char> bytes = read_file(path);
    const std::size_t head = 1024 + 1024 * static_cast<std::size_t>(h.get()->transhead);
    std::string types;
    std::size_t at = head + 18;
    for (int i = 0; i < bytes[head + 14]; i++) {
      types += static_cast<char>('0' + bytes[at + 12]);
      if (bytes[at + 12] == 6) {
        EXPECT_EQ(bytes[at + 13], 4);
        EXPECT_LT(engine::load_le32(&bytes[at + 14]), static_cast<std::uint32_t>(h.get()->nextnode));
      }
      at += 14U + bytes[at + 13];
    }
    // Six entries (five keys and the body) and one leaf; type 2 has no entries.
    EXPECT_EQ(types, type == 1 ? "411111165" : "465");
    ASSERT_EQ(engine::transend(h, 1), 0);
  }
}

}  // namespace
}  // namespace zvrdb::test
