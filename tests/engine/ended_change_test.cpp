// A reader that was idle while others worked sees each change that has ended, whatever the flag
// and the arbiter seem to say just then.
#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "engine/cached_reads.h"
#include "engine/engine_handle.h"
#include "engine/journal.h"
#include "engine/os_file.h"
#include "engine/psp.h"
#include "engine/scratch_folder.h"
#include "engine/sharing.h"

namespace zvrdb::test {
namespace {

using engine::linux_ops;

std::function<void()> before_write;
bool reader_locks_fail = false;
bool writes_fail = false;

engine::lock_answer lock(int file, std::uint64_t offset, std::uint64_t length) {
  const bool readers = offset >= engine::reader_bytes && offset < engine::arbiter_byte;
  return readers && reader_locks_fail ? engine::lock_answer::failed : linux_ops.lock(file, offset, length);
}

std::int64_t write_at(int file, std::uint64_t offset, const void* from, std::size_t n) {
  if (before_write) before_write();
  if (writes_fail) return -1;
  return linux_ops.write_at(file, offset, from, n);
}

class EndedChange : public ::testing::Test {
 protected:
  void SetUp() override {
    alarm(60);
    static engine::os_ops ops;
    ops = linux_ops;
    ops.lock = lock;
    ops.write_at = write_at;
    engine::set_os_ops(&ops);
    path_ = folder_.file("shared");
    for (handle* h : {&writer_, &other_, &reader_}) h->journal = engine::journal_use::on;
    reader_.from_cache = true;
    ASSERT_EQ(writer_.create(path_), 0);
    ASSERT_EQ(engine::csetfile(writer_, 4), 0);
    for (int i = 1; i <= 5; i++) ASSERT_EQ(writer_.insert(sample(i)), 0);
    ASSERT_EQ(other_.open_for_work(path_), 0);
    ASSERT_EQ(reader_.open_for_work(path_), 0);
    ASSERT_EQ(writer_.find_name(sample(3).name), 0);
    ASSERT_EQ(engine::dlock(writer_), 0);
    EXPECT_EQ(number_of(&reader_), sample(3).number);
    EXPECT_TRUE(needs_nothing_new());
  }
  void TearDown() override {
    before_write = nullptr;
    reader_locks_fail = writes_fail = false;
    engine::checkpoint_at = engine::journal_size;
    for (handle* h : {&reader_, &other_, &writer_}) EXPECT_EQ(h->close(), 0);
    engine::set_os_ops(nullptr);
    alarm(0);
  }
  // The record's number becomes 4711: one write operation.
  int change() {
    sample_record r = sample(3);
    r.number = 4711;
    sample_fields fields(r);
    return engine::dupdate(writer_, fields.list);
  }
  static int number_of(handle* h) {
    sample_record r;
    EXPECT_EQ(h->find_name(sample(3).name), 0);
    EXPECT_EQ(h->read(&r), 0);
    return r.number;
  }
  // Whether the reader would answer from what it knows.
  bool needs_nothing_new() {
    if (!engine::begin_quiet_read(reader_, 1)) return false;
    int result = 0;
    EXPECT_TRUE(engine::end_quiet_read(reader_, &result));
    return true;
  }
  engine::first_page page() {
    engine::first_page p{};
    EXPECT_EQ(engine::read_first_page(writer_, &p), 0);
    return p;
  }
  scratch_folder folder_;
  std::string path_;
  handle writer_, other_, reader_;
};

// A checkpoint that was cut short makes the next one write everything to the file again.
TEST_F(EndedChange, IsNotUnseenWhileACheckpointWritesItAgain) {
  engine::forget_mount(&writer_.get()->journal->log);
  engine::checkpoint_at = 1;
  const std::uint32_t before = page().generation;
  int looks = 0;
  before_write = [&, ended = false]() mutable {
    const engine::first_page now = page();
    ended = ended || (!now.flag && now.generation != before);
    if (!ended || !now.flag || looks++ > 0) return;
    EXPECT_FALSE(needs_nothing_new());
  };
  ASSERT_EQ(change(), 0);
  EXPECT_GT(looks, 0);
  before_write = nullptr;
  EXPECT_EQ(number_of(&reader_), 4711);
}

TEST_F(EndedChange, IsNotUnseenWhereItsPagesCouldNotBeWritten) {
  reader_locks_fail = true;
  ASSERT_EQ(change(), 0) << "it is in the journal";
  reader_locks_fail = false;
  ASSERT_EQ(engine::getarbiter(other_), 0);
  EXPECT_FALSE(needs_nothing_new()) << "the arbiter is another one's";
  ASSERT_EQ(engine::relarbiter(other_), 0);
  EXPECT_EQ(number_of(&reader_), 4711);
  EXPECT_EQ(number_of(&other_), 4711);
}

// The answer is that it is there, and nothing more can be written to the file or to the journal.
// A reader that saw it under way is told by nobody, and asks before long.
TEST_F(EndedChange, IsSeenSoonWhereNothingCouldTellOfIt) {
  before_write = [&] {
    const engine::journal_file& log = reader_.get()->journal->log;
    const engine::journal_news news = engine::look_for_news(&log, engine::view_of_journal(reader_));
    if (writes_fail || news != engine::journal_news::change_under_way) return;
    EXPECT_TRUE(needs_nothing_new()) << "its writer lives";
    writes_fail = true;
  };
  ASSERT_EQ(change(), 0) << "it is in the journal";
  before_write = nullptr;
  ASSERT_TRUE(std::exchange(writes_fail, false));
  constexpr int reads = 15;
  for (int read = 0; read < reads; ++read) needs_nothing_new();
  EXPECT_FALSE(needs_nothing_new());
  EXPECT_EQ(number_of(&reader_), 4711);
}

TEST_F(EndedChange, IsNotUnseenWhileAProgramWithoutAJournalWrites) {
  ASSERT_EQ(change(), 0);
  const int foreign = linux_ops.open(path_.c_str(), {true, false, false});
  ASSERT_EQ(linux_ops.lock(foreign, engine::slot_bytes + 7, 1), engine::lock_answer::taken);
  ASSERT_EQ(linux_ops.lock(foreign, engine::reader_bytes, engine::slot_count + 1), engine::lock_answer::taken);
  const engine::first_page now = page();
  std::uint8_t bytes[4];
  engine::store32(bytes, now.generation + 1, writer_.get()->order);
  const std::uint8_t flag[2] = {1, 1};
  ASSERT_EQ(linux_ops.write_at(foreign, engine::flag_offset, flag, 2), 2);
  EXPECT_FALSE(needs_nothing_new()) << "its header is to come";
  ASSERT_EQ(linux_ops.write_at(foreign, engine::header_at::generation, bytes, 4), 4);
  EXPECT_FALSE(needs_nothing_new());
  const std::uint8_t none[2] = {};
  ASSERT_EQ(linux_ops.write_at(foreign, engine::flag_offset, none, 2), 2);
  linux_ops.close(foreign);
  EXPECT_EQ(number_of(&reader_), 4711);
}

}  // namespace
}  // namespace zvrdb::test
