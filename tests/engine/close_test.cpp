// Closing a file, and what is left when that fails.
#include <gtest/gtest.h>

#include "engine/engine_handle.h"
#include "engine/faulty_os.h"
#include "engine/header_page.h"
#include "engine/node_cache.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

class Close : public ::testing::Test {
 protected:
  void SetUp() override {
    install_faulty_os();
    path_ = folder_.file("closing");
    handle h;
    ASSERT_EQ(h.create(path_), 0);
    ASSERT_EQ(engine::csetfile(h, 4), 0);
    for (int i = 1; i <= 20; i++) ASSERT_EQ(h.insert(sample(i)), 0);
    ASSERT_EQ(h.close(), 0);
  }
  void TearDown() override {
    disarm();
    if (engine::checkpsp(h_) == 'O') engine::abandon(h_);
    EXPECT_EQ(open_files(), 0);
    remove_faulty_os();
  }
  void expect_sound() {
    check_result result = check_file(path_, true);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
  scratch_folder folder_;
  std::string path_;
  handle h_;
};

TEST_F(Close, ThatTheSystemRefusesStillEndsTheHandle) {
  for (char access : {'S', 'E'}) {
    ASSERT_EQ(h_.open(path_, access), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    fail_call(os_call::close, 1);
    EXPECT_EQ(engine::dclose(h_), engine::e_not_found);
    EXPECT_EQ(engine::checkpsp(h_), 'C');
    EXPECT_EQ(open_files(), 0);
    EXPECT_EQ(engine::dclose(h_), engine::e_bad_handle);
  }
  // Slot and share mode went with it.
  EXPECT_EQ(h_.open(path_, 'E'), 0);
  EXPECT_EQ(h_.close(), 0);
  expect_sound();
}

TEST_F(Close, ThatCannotWriteLeavesTheFileOpenAndMayBeRepeated) {
  ASSERT_EQ(h_.open(path_, 'E'), 0);
  ASSERT_EQ(engine::csetfile(h_, 0), 0);
  ASSERT_EQ(h_.insert(sample(50)), 0);
  // The header, then a node.
  for (int nth : {1, 2}) {
    fail_call(os_call::write, nth);
    EXPECT_EQ(engine::dclose(h_), engine::e_io);
    EXPECT_EQ(h_.get()->errdetail, engine::e_write);
    EXPECT_EQ(engine::checkpsp(h_), 'O');
    EXPECT_EQ(h_.get()->wrnest, 0);
  }
  EXPECT_EQ(h_.find_name(sample(50).name), 0);
  EXPECT_EQ(engine::dclose(h_), 0);
  ASSERT_EQ(h_.open_for_work(path_), 0);
  EXPECT_EQ(h_.find_name(sample(50).name), 0);
  EXPECT_EQ(h_.close(), 0);
  expect_sound();
}

TEST_F(Close, OfASharedFileThatCannotWriteLeavesItKnownAsDamaged) {
  ASSERT_EQ(h_.open_for_work(path_), 0);
  fail_call(os_call::write, 2, true);   // from the header on, behind the flag
  EXPECT_EQ(engine::dclose(h_), engine::e_io);
  EXPECT_EQ(h_.get()->errdetail, engine::e_write);
  disarm();
  EXPECT_EQ(engine::checkpsp(h_), 'O');
  // The flag stands, so this handle may not write any more, and a close is a write.
  EXPECT_EQ(engine::dclose(h_), engine::e_write_flag);
  engine::abandon(h_);
  EXPECT_EQ(h_.open(path_), engine::e_write_flag);
}

TEST_F(Close, OfAReaderWritesNothing) {
  ASSERT_EQ(h_.open(path_, 'S', 1), 0);
  ASSERT_EQ(h_.find_name(sample(3).name), 0);
  clear_events();
  EXPECT_EQ(engine::dclose(h_), 0);
  for (const os_event& e : events()) EXPECT_NE(e.call, os_call::write);
}

TEST_F(Close, FreesTheSlotBeforeTheFileIsLetGo) {
  ASSERT_EQ(h_.open_for_work(path_), 0);
  clear_events();
  ASSERT_EQ(engine::dclose(h_), 0);
  ASSERT_GE(events().size(), 2U);
  const os_event& slot = events()[events().size() - 2];
  EXPECT_EQ(slot.call, os_call::unlock);
  EXPECT_EQ(slot.offset, 353U);
  EXPECT_EQ(events().back().call, os_call::close);
}

TEST_F(Close, WithoutMemoryForTheCacheNothingIsOpened) {
  engine::set_cache_blocks(11);
  fail_call(os_call::allocate, 1, true);
  EXPECT_EQ(h_.open(path_), engine::e_no_memory);
  EXPECT_EQ(engine::checkpsp(h_), 'C');
  disarm();
  engine::set_cache_blocks(0);
  ASSERT_EQ(h_.open(path_, 'E'), 0);
  EXPECT_EQ(engine::nodeget(h_, nullptr, 0), engine::e_io);
  engine::abandon(h_);
  engine::set_cache_blocks(10);
  ASSERT_EQ(h_.open(path_), 0);
  EXPECT_EQ(h_.close(), 0);
}

}  // namespace
}  // namespace zvrdb::test
