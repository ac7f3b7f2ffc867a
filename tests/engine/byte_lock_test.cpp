// Which bytes of the first page a handle holds at what time, and what that means to others.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

#include "engine/byte_wait.h"
#include "engine/writers_held.h"
#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/header_page.h"
#include "engine/node_cache.h"
#include "engine/os_file.h"
#include "engine/record_locks.h"
#include "engine/scratch_folder.h"
#include "engine/sharing.h"

namespace zvrdb::test {
namespace {

using engine::linux_ops;
using engine::lock_answer;

constexpr std::uint64_t first_slot = 353;
constexpr std::uint64_t first_reader = 562;
constexpr std::uint64_t all_readers = 209;
constexpr std::uint64_t arbiter = 771;

// What happens at the first wait for a byte.
std::function<void()> at_wait;
int waits = 0;

void wait_with_event(unsigned) {
  waits++;
  if (auto event = std::move(at_wait)) event();
}

class ByteLocks : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = folder_.file("locks");
    handle h;
    ASSERT_EQ(h.create(path_), 0);
    ASSERT_EQ(engine::csetfile(h, 4), 0);
    for (int i = 1; i <= 20; i++) ASSERT_EQ(h.insert(sample(i)), 0);
    ASSERT_EQ(h.close(), 0);
    watcher_ = linux_ops.open(path_.c_str(), {true, false, false});
    ASSERT_GE(watcher_, 0);
    table_ = linux_ops;
    table_.wait = wait_with_event;
    waits = 0;
    at_wait = nullptr;
    engine::set_os_ops(&table_);
  }
  void TearDown() override {
    at_wait = nullptr;
    linux_ops.close(watcher_);
    engine::set_os_ops(nullptr);
  }
  bool is_held(std::uint64_t byte) { return linux_ops.probe(watcher_, byte) == 1; }
  int reader_bytes_held() {
    int count = 0;
    for (std::uint64_t i = 0; i < all_readers; i++) count += is_held(first_reader + i);
    return count;
  }
  void expect_state(handle& h, char arbiter_state, int locklevel, int reader_bytes) {
    EXPECT_EQ(h.get()->arbiter, arbiter_state);
    EXPECT_EQ(h.get()->locklevel, locklevel);
    EXPECT_EQ(is_held(arbiter), arbiter_state == 'L');
    EXPECT_EQ(reader_bytes_held(), reader_bytes);
  }
  void expect_idle(handle& h) { expect_state(h, 'U', 1, 0); }
  void expect_reading(handle& h) {
    expect_state(h, 'U', 2, 1);
    EXPECT_TRUE(is_held(first_reader + static_cast<std::uint64_t>(h.get()->slot)));
  }
  void expect_write_begun(handle& h) { expect_state(h, 'L', 1, 0); }
  void expect_writing(handle& h) { expect_state(h, 'L', 3, 209); }
  void expect_sound() {
    check_result result = check_file(path_, true);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }

  scratch_folder folder_;
  std::string path_;
  engine::os_ops table_;
  int watcher_ = -1;
};

// Readers that come in turn, so that never all bytes are free at once, keep no writer out.
TEST_F(ByteLocks, AreHadOneAfterTheOtherWhereReadersComeAgainAndAgain) {
  const int writer = linux_ops.open(path_.c_str(), {true, false, false});
  ASSERT_GE(writer, 0);
  std::uint64_t held = first_reader + 7;
  ASSERT_EQ(linux_ops.lock(watcher_, held, 1), lock_answer::taken);
  int refused = 0;
  std::function<void()> next_reader = [&] {
    const std::uint64_t other = first_reader + (held - first_reader + 100) % all_readers;
    const bool had = linux_ops.lock(watcher_, other, 1) == lock_answer::taken;
    linux_ops.unlock(watcher_, held, 1);
    refused += !had;
    held = other;
    if (had) at_wait = next_reader;
  };
  at_wait = next_reader;
  EXPECT_EQ(engine::wait_for_each_byte(writer, first_reader, all_readers), 0);
  EXPECT_EQ(refused, 1);
  EXPECT_LT(waits, 10);
  for (std::uint64_t i = 0; i < all_readers; ++i) EXPECT_EQ(linux_ops.probe(watcher_, first_reader + i), 1) << i;
  linux_ops.close(writer);
}

TEST_F(ByteLocks, FollowTheStatesOfAHandle) {
  handle h;
  ASSERT_EQ(h.open_for_work(path_), 0);
  EXPECT_TRUE(is_held(first_slot));
  expect_idle(h);
  ASSERT_EQ(engine::rdenter(h), 0);
  expect_reading(h);
  ASSERT_EQ(engine::rdenter(h), 0);
  ASSERT_EQ(engine::rdleave(h), 0);
  expect_reading(h);
  ASSERT_EQ(engine::rdleave(h), 0);
  expect_idle(h);
  ASSERT_EQ(engine::wrenter(h), 0);
  expect_write_begun(h);
  ASSERT_EQ(engine::writehdr(h), 0);
  expect_writing(h);
  ASSERT_EQ(engine::wrleave(h), 0);
  expect_idle(h);
  ASSERT_EQ(engine::csetfile(h, 1), 0);
  ASSERT_EQ(engine::wrenter(h), 0);
  expect_writing(h);
  ASSERT_EQ(engine::wrleave(h), 0);
  expect_idle(h);
  ASSERT_EQ(h.close(), 0);
  EXPECT_FALSE(is_held(first_slot));
}

TEST_F(ByteLocks, OfAWriteInsideAReadGoBackToThoseOfTheRead) {
  handle h;
  ASSERT_EQ(h.open_for_work(path_), 0);
  ASSERT_EQ(engine::rdenter(h), 0);
  ASSERT_EQ(engine::wrenter(h), 0);
  expect_write_begun(h);
  ASSERT_EQ(engine::writehdr(h), 0);
  ASSERT_EQ(engine::rdenter(h), 0);
  ASSERT_EQ(engine::rdleave(h), 0);
  expect_writing(h);
  ASSERT_EQ(engine::wrleave(h), 0);
  expect_reading(h);
  ASSERT_EQ(engine::rdleave(h), 0);
  expect_idle(h);
}

TEST_F(ByteLocks, AreNotTakenByAnExclusiveHandle) {
  linux_ops.close(watcher_);
  handle h;
  ASSERT_EQ(h.open(path_, 'E'), 0);
  watcher_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_EQ(h.get()->slot, -1);
  ASSERT_EQ(engine::wrenter(h), 0);
  for (std::uint64_t byte = first_slot; byte <= arbiter; byte++) ASSERT_FALSE(is_held(byte)) << byte;
  ASSERT_EQ(engine::wrleave(h), 0);
}

TEST_F(ByteLocks, OutliveTheClosingOfAnotherDescriptor) {
  handle h;
  ASSERT_EQ(h.open_for_work(path_), 0);
  EXPECT_EQ(linux_ops.close(linux_ops.open(path_.c_str(), {true, false, false})), 0);
  EXPECT_TRUE(is_held(first_slot));
  // Its own lock is nothing that a handle sees.
  EXPECT_EQ(linux_ops.probe(h.get()->file, first_slot), 0);
}

TEST_F(ByteLocks, AReaderWaitsForTheWriterAtWork) {
  handle h;
  ASSERT_EQ(h.open_for_work(path_), 0);
  ASSERT_EQ(linux_ops.lock(watcher_, arbiter, 1), lock_answer::taken);
  at_wait = [&] {
    EXPECT_EQ(h.get()->locklevel, 1);
    EXPECT_EQ(linux_ops.unlock(watcher_, arbiter, 1), 0);
  };
  EXPECT_EQ(h.find_name(sample(7).name), 0);
  EXPECT_EQ(waits, 1);
  expect_idle(h);
}

TEST_F(ByteLocks, AWriterWaitsForReadersAtItsFirstWrite) {
  handle h;
  ASSERT_EQ(h.open_for_work(path_), 0);
  ASSERT_EQ(linux_ops.lock(watcher_, first_reader + 7, 1), lock_answer::taken);
  ASSERT_EQ(engine::wrenter(h), 0);
  EXPECT_EQ(waits, 0);
  at_wait = [&] { EXPECT_EQ(linux_ops.unlock(watcher_, first_reader + 7, 1), 0); };
  EXPECT_EQ(engine::writehdr(h), 0);
  EXPECT_EQ(waits, 1);
  EXPECT_EQ(engine::wrleave(h), 0);
}

TEST_F(ByteLocks, WritersAreHeldBetweenTwoOperationsAndReadersGoOn) {
  handle writer;
  ASSERT_EQ(writer.open_for_work(path_), 0);
  {
    // The holder waits for the operation at work.
    ASSERT_EQ(engine::wrenter(writer), 0);
    at_wait = [&] { EXPECT_EQ(engine::wrleave(writer), 0); };
    auto held = std::make_unique<engine::writers_held>(path_.c_str());
    EXPECT_EQ(held->result(), 0);
    EXPECT_EQ(waits, 1);
    EXPECT_TRUE(is_held(arbiter));
    EXPECT_EQ(reader_bytes_held(), 0);
    at_wait = [&] { held.reset(); };
    EXPECT_EQ(writer.insert(sample(30)), 0);
    EXPECT_EQ(waits, 2);
  }
  EXPECT_FALSE(is_held(arbiter));
  EXPECT_EQ(engine::writers_held(folder_.file("absent").c_str()).result(), engine::e_not_found);
  ASSERT_EQ(writer.close(), 0);
  linux_ops.close(watcher_);
  ASSERT_EQ(writer.open(path_, 'E'), 0);
  EXPECT_EQ(engine::writers_held(path_.c_str()).result(), engine::e_not_found);
  ASSERT_EQ(writer.close(), 0);
  watcher_ = linux_ops.open(path_.c_str(), {true, false, false});
  table_.lock = [](int, std::uint64_t, std::uint64_t) { return lock_answer::failed; };
  EXPECT_EQ(engine::writers_held(path_.c_str()).result(), engine::e_byte_lock);
}

TEST_F(ByteLocks, ReadersTakeSlotsToo) {
  std::vector<std::unique_ptr<handle>> readers;
  for (int i = 0; i < 209; i++) {
    readers.push_back(std::make_unique<handle>());
    ASSERT_EQ(readers.back()->open(path_, 'S', 1), 0) << i;
    ASSERT_EQ(readers.back()->get()->slot, i);
  }
  handle reader, writer;
  EXPECT_EQ(reader.open(path_, 'S', 1), engine::e_no_slot);
  EXPECT_EQ(writer.open(path_), engine::e_no_slot);
  ASSERT_EQ(readers[100]->close(), 0);
  ASSERT_EQ(reader.open(path_, 'S', 1), 0);
  EXPECT_EQ(reader.get()->slot, 100);
  EXPECT_EQ(reader.find_name(sample(7).name), 0);
}

// ---- Readers that may not write the file

int open_as_asked(const char* path, engine::open_how how) {
  return how.write ? linux_ops.open(path, how) : ::open(path, O_RDONLY | O_CLOEXEC);
}

class ReadOnlyDescriptors : public ByteLocks {
 protected:
  void SetUp() override {
    ByteLocks::SetUp();
    table_.open = open_as_asked;
    one_.from_cache = other_.from_cache = false;   // their locks are looked at
    ASSERT_EQ(one_.open(path_, 'S', 1), 0);
    ASSERT_EQ(other_.open(path_, 'S', 1), 0);
    ASSERT_EQ(fcntl(one_.get()->file, F_GETFL) & O_ACCMODE, O_RDONLY);
  }
  handle one_, other_;
};

TEST_F(ReadOnlyDescriptors, TakeASlotEach) {
  EXPECT_EQ(one_.get()->slot, 0);
  EXPECT_EQ(other_.get()->slot, 1);
  EXPECT_TRUE(is_held(first_slot) && is_held(first_slot + 1));
  ASSERT_EQ(one_.close(), 0);
  EXPECT_FALSE(is_held(first_slot));
  handle third;
  ASSERT_EQ(third.open(path_, 'S', 1), 0);
  EXPECT_EQ(third.get()->slot, 0);
}

TEST_F(ReadOnlyDescriptors, ContendForAByteLikeWriters) {
  const std::uint64_t byte = first_slot + 5;
  const int one = one_.get()->file, other = other_.get()->file;
  ASSERT_EQ(linux_ops.lock(one, byte, 1), lock_answer::taken);
  EXPECT_EQ(linux_ops.probe(other, byte), 1);
  EXPECT_EQ(linux_ops.lock(other, byte, 1), lock_answer::busy);
  EXPECT_EQ(linux_ops.lock(watcher_, byte, 1), lock_answer::busy);
  // The one that was refused left nothing behind.
  EXPECT_EQ(linux_ops.unlock(one, byte, 1), 0);
  EXPECT_FALSE(is_held(byte));
  EXPECT_EQ(linux_ops.lock(other, byte, 1), lock_answer::taken);
  EXPECT_EQ(linux_ops.lock(one, byte, 1), lock_answer::busy);
}

TEST_F(ReadOnlyDescriptors, ReadAtTheSameTimeAndKeepTheWriterOut) {
  ASSERT_EQ(engine::rdenter(one_), 0);
  ASSERT_EQ(engine::rdenter(other_), 0);
  EXPECT_EQ(waits, 0);
  EXPECT_EQ(reader_bytes_held(), 2);
  EXPECT_EQ(one_.find_name(sample(3).name), 0);
  EXPECT_EQ(other_.find_name(sample(4).name), 0);
  EXPECT_EQ(linux_ops.lock(watcher_, first_reader, all_readers), lock_answer::busy);
  ASSERT_EQ(engine::rdleave(one_), 0);
  ASSERT_EQ(engine::rdleave(other_), 0);
  EXPECT_EQ(linux_ops.lock(watcher_, first_reader, all_readers), lock_answer::taken);
  at_wait = [&] { EXPECT_EQ(linux_ops.unlock(watcher_, first_reader, all_readers), 0); };
  EXPECT_EQ(one_.find_name(sample(5).name), 0);
  EXPECT_EQ(waits, 1);
}

TEST_F(ReadOnlyDescriptors, SeeWhatAWriterChanges) {
  handle writer;
  ASSERT_EQ(writer.open_for_work(path_), 0);
  for (int i = 21; i <= 40; i++) {
    ASSERT_EQ(one_.find_name(sample(i).name), engine::e_not_found);
    ASSERT_EQ(writer.insert(sample(i)), 0);
    ASSERT_EQ(one_.find_name(sample(i).name), 0);
    ASSERT_EQ(other_.find_name(sample(i).name), 0);
  }
  sample_fields fields(sample(50));
  EXPECT_EQ(engine::dinsert(one_, fields.list), engine::e_read_only);
}

// ---- Share modes

TEST_F(ByteLocks, AReaderBesideTheOneWriterReadsWithoutLocks) {
  linux_ops.close(watcher_);
  handle writer, reader, late;
  ASSERT_EQ(writer.open(path_, 'D', 2), 0);
  ASSERT_EQ(engine::csetfile(writer, 4), 0);
  EXPECT_EQ(writer.get()->access, 'D');
  EXPECT_EQ(writer.get()->nogencheck, 1);
  ASSERT_EQ(reader.open(path_, 'D', 1), 0);
  watcher_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_EQ(reader.get()->access, 'E');
  EXPECT_EQ(reader.get()->openaccess, 'D');
  EXPECT_TRUE(is_held(first_slot) && is_held(first_slot + 1));
  EXPECT_EQ(reader.find_name(sample(7).name), 0);
  ASSERT_EQ(engine::rdenter(reader), 0);
  EXPECT_EQ(reader_bytes_held(), 0);
  EXPECT_EQ(writer.insert(sample(77)), 0);
  ASSERT_EQ(engine::rdleave(reader), 0);
  EXPECT_EQ(waits, 0);
  EXPECT_EQ(reader.find_name(sample(7).name), 0);
  ASSERT_EQ(late.open(path_, 'D', 1), 0);
  EXPECT_EQ(late.find_name(sample(77).name), 0);
  EXPECT_EQ(reader.close(), 0);
  EXPECT_FALSE(is_held(first_slot + 1));
  EXPECT_EQ(late.close(), 0);
  EXPECT_EQ(writer.insert(sample(78)), 0);
  EXPECT_EQ(writer.close(), 0);
  expect_sound();
}

TEST_F(ByteLocks, AnExclusiveOpenMindsTheSlotOfAProgramWithoutShareModes) {
  linux_ops.close(watcher_);
  watcher_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(linux_ops.lock(watcher_, first_slot + 5, 1), lock_answer::taken);
  handle h;
  EXPECT_EQ(h.open(path_, 'E'), engine::e_not_found);
  EXPECT_EQ(engine::_bopen(h, path_.c_str(), 'E', 2), engine::e_not_found);
  EXPECT_EQ(h.open(path_, 'S'), 0);
}

TEST_F(ByteLocks, CreatingAFileThatIsTakenWholeFailsAndLeavesItAlone) {
  linux_ops.close(watcher_);
  handle owner, h;
  ASSERT_EQ(owner.open(path_, 'E'), 0);
  const auto before = read_file(path_);
  EXPECT_EQ(h.create(path_), engine::e_not_found);
  EXPECT_EQ(read_file(path_), before);
  ASSERT_EQ(owner.close(), 0);
  EXPECT_EQ(h.create(path_), engine::e_exists);
  watcher_ = linux_ops.open(path_.c_str(), {true, false, false});
}

lock_answer no_lock(int, std::uint64_t, std::uint64_t) { return lock_answer::failed; }

lock_answer no_reader_byte(int file, std::uint64_t offset, std::uint64_t length) {
  return offset >= first_reader ? lock_answer::failed : linux_ops.lock(file, offset, length);
}

TEST_F(ByteLocks, WhereTheyCannotBeHadAndOthersUseTheFileTheOpenFails) {
  handle other, h;
  ASSERT_EQ(other.open_for_work(path_), 0);
  for (auto lock : {no_lock, no_reader_byte}) {
    table_.lock = lock;
    EXPECT_EQ(h.open(path_), engine::e_open_exclusive);
    EXPECT_EQ(engine::checkpsp(h), 'C');
    table_.lock = linux_ops.lock;
    EXPECT_FALSE(is_held(first_slot + 1));
  }
  EXPECT_EQ(h.open(path_), 0);
}

TEST_F(ByteLocks, ThatFailEndAnOperationWithACode) {
  handle h;
  ASSERT_EQ(h.open_for_work(path_), 0);
  table_.lock = no_lock;
  EXPECT_EQ(h.find_name(sample(7).name, engine::find_greater_equal), engine::e_byte_lock);
  EXPECT_EQ(h.find_name(sample(7).name), engine::e_not_found);
  EXPECT_EQ(engine::dseq(h, 1, engine::seq_first), engine::e_byte_lock);
  EXPECT_EQ(h.insert(sample(30)), engine::e_byte_lock);
  EXPECT_EQ(engine::transstat(h), engine::e_byte_lock);
  table_.lock = linux_ops.lock;
  expect_idle(h);
  EXPECT_EQ(h.insert(sample(30)), 0);
}

// ---- Record locks of the dead

TEST_F(ByteLocks, ADeadLockTellsOfTheTransactionThatItsOwnerLeft) {
  handle dead, h;
  ASSERT_EQ(dead.open_for_work(path_), 0);
  ASSERT_EQ(h.open_for_work(path_), 0);
  ASSERT_EQ(engine::transbeg(dead, 3, nullptr), 0);
  ASSERT_EQ(dead.insert(sample(60)), 0);
  ASSERT_EQ(dead.find_name(sample(7).name), 0);
  ASSERT_EQ(engine::keylock(dead, 1), 0);
  ASSERT_EQ(engine::dlock(dead), 0);
  ASSERT_EQ(h.find_name(sample(7).name), 0);
  EXPECT_EQ(engine::dlock(h), engine::e_locked_by_other);
  engine::abandon(dead);
  // Asked for, the lock is gone; wanted, it is taken over: the transaction is told in both.
  EXPECT_EQ(engine::keylockstate(h, 1), engine::e_trans_interrupted);
  EXPECT_EQ(engine::keylockstate(h, 1), engine::e_not_locked);
  EXPECT_EQ(engine::dlock(h), engine::e_trans_interrupted);
  ASSERT_EQ(engine::transroll(h, nullptr, 0, nullptr), 0);
  EXPECT_EQ(h.find_name(sample(60).name), engine::e_not_found);
  ASSERT_EQ(h.find_name(sample(7).name), 0);
  EXPECT_EQ(engine::dlock(h), 0);
  EXPECT_EQ(engine::dunlock(h), 0);
  ASSERT_EQ(h.close(), 0);
  expect_sound();
}

TEST_F(ByteLocks, OldLocksOfASlotAreToldToAReaderAndRemovedByAWriter) {
  handle dead, reader, writer;
  ASSERT_EQ(reader.open(path_, 'S', 1), 0);
  ASSERT_EQ(dead.open_for_work(path_), 0);
  ASSERT_EQ(dead.get()->slot, 1);
  ASSERT_EQ(dead.find_name(sample(7).name), 0);
  ASSERT_EQ(engine::dlock(dead), 0);
  engine::abandon(dead);
  EXPECT_EQ(engine::purgelocks(reader), 0);
  reader.get()->slot = 1;
  EXPECT_EQ(engine::purgelocks(reader), engine::e_old_locks);
  reader.get()->slot = 0;
  // An open for clearing the flag takes the slot as it is.
  handle clearer;
  ASSERT_EQ(engine::_bopen(clearer, path_.c_str(), 'S', 1), 0);
  EXPECT_EQ(clearer.get()->slot, 1);
  ASSERT_EQ(engine::cclose(clearer), 0);
  ASSERT_EQ(writer.open_for_work(path_), 0);
  EXPECT_EQ(writer.get()->slot, 1);
  EXPECT_EQ(engine::bfirst(writer, engine::key_locks, nullptr, 0), engine::e_not_found);
}

// ---- Changes by others

TEST_F(ByteLocks, ANodeReadBetweenOperationsIsNoneThatAnotherHandleChanged) {
  handle h, writer;
  ASSERT_EQ(h.open_for_work(path_), 0);
  ASSERT_EQ(writer.open_for_work(path_), 0);
  ASSERT_EQ(h.find_name(sample(7).name), 0);
  const std::int32_t leaf = engine::cursor_of(h, 1).cnode;
  ASSERT_EQ(engine::nodeget(h, nullptr, leaf), 0);
  const engine::node before = *h.get()->current;
  EXPECT_EQ(engine::cursor_of(h, 1).cstale, 0);
  // Nothing was changed: the node comes from the cache, and the place stays.
  ASSERT_EQ(engine::nodeget(h, nullptr, leaf), 0);
  EXPECT_EQ(engine::cursor_of(h, 1).cstale, 0);

  ASSERT_EQ(writer.find_name(sample(7).name), 0);
  ASSERT_EQ(writer.remove(), 0);
  ASSERT_NE(h.get()->generation, writer.get()->generation);
  ASSERT_EQ(engine::nodeget(h, nullptr, leaf), 0);
  EXPECT_LT(h.get()->current->count, before.count);
  EXPECT_EQ(h.get()->generation, writer.get()->generation);
  EXPECT_EQ(engine::cursor_of(h, 1).cstale, 1);
  EXPECT_EQ(engine::cursor_of(h, 19).cstale, 1);
}

}  // namespace
}  // namespace zvrdb::test
