// A handle that slept while others began the journal anew finds the rest of the life it was in, goes
// on to its end and from there into the next one; or it sees that it can't, and reads the file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "engine/engine_handle.h"
#include "engine/faulty_os.h"
#include "engine/journal.h"
#include "engine/journal_file.h"
#include "engine/node_cache.h"
#include "engine/os_file.h"
#include "engine/psp.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::journal_file;
using header_bytes = std::uint8_t[engine::header_size];

constexpr std::uint64_t group_length = 1024;   // of those below, in the journal

// What a reader is told on its way.
struct heard {
  std::vector<std::uint32_t> generations;
  int lives = 0;
  bool passed_on = false;
};

engine::journal_watcher watcher_of(heard& h) {
  return {&h,
          [](void* context, const journal_file&, bool passed_on) {
            ++static_cast<heard*>(context)->lives;
            static_cast<heard*>(context)->passed_on = passed_on;
          },
          [](void* context, const engine::group_read& g) {
            static_cast<heard*>(context)->generations.push_back(g.generation_after);
          },
          [](void*) {}};
}

class EndedLife : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = folder_.file("file.jnl");
    j_.identity = r_.identity = 77;
    ASSERT_EQ(engine::make_journal(&j_, path_.c_str()), 0);
    begin(engine::life_before::unrelated);
    append(4);
    ASSERT_EQ(engine::open_journal(&r_, path_.c_str()), 0);
    ASSERT_EQ(engine::catch_up(&r_, false), 0);
    ASSERT_EQ(r_.at.generation, 4u);
  }
  void TearDown() override {
    engine::close_journal(&r_);
    engine::close_journal(&j_);
  }

  void begin(engine::life_before before) {
    header_bytes header = {};
    ASSERT_EQ(engine::begin_life(&j_, header, generation_, generation_, engine::begun::flushed, before), 0);
  }
  void append(int groups) {
    for (int i = 0; i < groups; ++i) {
      header_bytes header = {};
      engine::group_to_write g = {};
      g.generation_before = generation_;
      g.generation_after = ++generation_;
      g.extent = 100;
      g.header = header;
      g.nodes = 1;
      g.node_at = [](const void*, std::uint32_t) -> engine::node_change {
        static constexpr std::uint8_t bytes[engine::page_size] = {};
        return {7, 30, 300, bytes, bytes + 30};
      };
      const std::uint64_t before = j_.at.end;
      ASSERT_EQ(engine::append_group(&j_, g), 0);
      ASSERT_EQ(j_.at.end - before, group_length);
    }
  }
  void take_back(int groups) {
    engine::log_mark place;
    for (int i = 0; i < groups; ++i) place.end = j_.at.last - group_length * static_cast<std::uint64_t>(i);
    ASSERT_EQ(engine::take_back_from(&j_, place.end), 0);
    generation_ = j_.at.generation;
  }
  void patch(std::uint64_t at, std::vector<std::uint8_t> bytes) {
    ASSERT_EQ(pwrite(j_.file, bytes.data(), bytes.size(), static_cast<off_t>(at)), static_cast<ssize_t>(bytes.size()));
  }
  // What the reader hears when it looks again.
  heard look() {
    heard h;
    EXPECT_EQ(engine::catch_up(&r_, false, watcher_of(h)), 0);
    EXPECT_EQ(r_.salt, j_.salt);
    EXPECT_EQ(r_.at.end, j_.at.end);
    EXPECT_EQ(r_.at.chain, j_.at.chain);
    EXPECT_EQ(r_.at.generation, j_.at.generation);
    return h;
  }

  scratch_folder folder_;
  std::string path_;
  journal_file j_, r_;
  std::uint32_t generation_ = 0;
};

TEST_F(EndedLife, IsReadToItsEnd) {
  append(3);
  begin(engine::life_before::leads_here);
  append(2);
  const heard h = look();
  EXPECT_EQ(h.generations, (std::vector<std::uint32_t>{5, 6, 7, 8, 9}));
  EXPECT_EQ(h.lives, 1);
  EXPECT_TRUE(h.passed_on);
}

TEST_F(EndedLife, IsReadInTheViewAsInTheFile) {
  append(3);
  begin(engine::life_before::leads_here);
  std::vector<std::uint64_t> bytes(engine::journal_size / 8);
  ASSERT_EQ(pread(j_.file, bytes.data(), engine::journal_size, 0), static_cast<ssize_t>(engine::journal_size));
  r_.view = reinterpret_cast<const std::uint8_t*>(bytes.data());
  heard h;
  EXPECT_TRUE(engine::look_at_life_quietly(&r_, watcher_of(h)));
  r_.view = nullptr;
  EXPECT_EQ(h.generations, (std::vector<std::uint32_t>{5, 6, 7}));
  EXPECT_TRUE(h.passed_on);
  EXPECT_EQ(r_.salt, j_.salt);
}

TEST_F(EndedLife, OfWhichAllIsKnownNeedsNoReading) {
  begin(engine::life_before::leads_here);
  const heard h = look();
  EXPECT_TRUE(h.generations.empty());
  EXPECT_TRUE(h.passed_on);
}

TEST_F(EndedLife, OfAnotherStateOfTheFileLeadsNowhere) {
  append(1);
  begin(engine::life_before::unrelated);
  EXPECT_FALSE(look().passed_on);
}

TEST_F(EndedLife, BeforeTheLastOneLeadsNowhere) {
  begin(engine::life_before::leads_here);
  append(1);
  begin(engine::life_before::leads_here);
  append(1);
  const heard h = look();
  EXPECT_EQ(h.lives, 1);
  EXPECT_FALSE(h.passed_on);
}

TEST_F(EndedLife, IsFollowedThroughSeveralOnes) {
  for (int life = 0; life < 5; ++life) {
    append(life);
    begin(engine::life_before::leads_here);
    append(3);
    EXPECT_TRUE(look().passed_on);
  }
}

// The new life's groups stand where the next one to be read stood, or near it.
TEST_F(EndedLife, ThatIsOverwrittenLeadsNowhere) {
  append(4);
  for (int groups = 1; groups <= 8; ++groups) {
    append(8 - groups % 3);
    engine::close_journal(&r_);
    ASSERT_EQ(engine::open_journal(&r_, path_.c_str()), 0);
    ASSERT_EQ(engine::catch_up(&r_, false), 0);
    const std::uint64_t place = r_.at.end;
    append(2);
    begin(engine::life_before::leads_here);
    append(groups);
    EXPECT_EQ(look().passed_on, j_.at.end <= place) << groups;
    append(static_cast<int>((place - j_.at.end) / group_length) + 1);
    begin(engine::life_before::leads_here);
    append(4);
    look();
  }
}

TEST_F(EndedLife, OfWhichOneGroupIsTornLeadsNowhere) {
  append(3);
  const std::uint64_t at = r_.at.end + group_length;
  begin(engine::life_before::leads_here);
  append(1);
  patch(at + 512, std::vector<std::uint8_t>(200, 0xEE));
  const heard h = look();
  EXPECT_FALSE(h.passed_on);
  EXPECT_EQ(h.generations, (std::vector<std::uint32_t>{5, 8}));
}

TEST_F(EndedLife, IsFollowedByNoBitThatChanged) {
  append(3);
  const std::uint64_t from = r_.at.end;
  const std::uint64_t to = j_.at.end;
  begin(engine::life_before::leads_here);
  const journal_file before = r_;
  std::vector<std::uint8_t> bytes(to - from);
  ASSERT_EQ(pread(j_.file, bytes.data(), bytes.size(), static_cast<off_t>(from)), static_cast<ssize_t>(bytes.size()));
  int without_effect = 0;
  for (std::uint64_t bit = 0; bit < 8 * bytes.size(); ++bit) {
    std::vector<std::uint8_t> one = {static_cast<std::uint8_t>(bytes[bit / 8] ^ 1u << bit % 8)};
    patch(from + bit / 8, one);
    const std::uint8_t* buffer = r_.buffer;
    const std::size_t capacity = r_.capacity;
    r_ = before;
    r_.buffer = const_cast<std::uint8_t*>(buffer);
    r_.capacity = capacity;
    without_effect += look().passed_on ? 1 : 0;
    patch(from + bit / 8, {bytes[bit / 8]});
  }
  // What fills a group up to its sector isn't part of it.
  const std::uint64_t length = 64 + 352 + 8 + 18 + 300;
  EXPECT_EQ(without_effect, static_cast<int>(3 * 8 * (group_length - length)));
}

// The reader had seen a group of a writer at work, which was then taken back.
TEST_F(EndedLife, ThatIsShorterThanWhatWasSeenLeadsNowhere) {
  take_back(1);
  begin(engine::life_before::leads_here);
  const heard h = look();
  EXPECT_FALSE(h.passed_on);
}

TEST_F(EndedLife, WithAnotherGroupWhereOneWasSeenLeadsNowhere) {
  for (int more = 1; more <= 3; ++more) {
    SCOPED_TRACE(more);
    take_back(1);
    append(more);
    begin(engine::life_before::leads_here);
    const heard h = look();
    EXPECT_FALSE(h.passed_on);
    EXPECT_TRUE(h.generations.empty());
    append(4);
    look();
  }
}

TEST_F(EndedLife, WithAGroupTakenBackBehindWhatWasSeenIsReadToItsEnd) {
  append(3);
  take_back(2);
  append(1);
  begin(engine::life_before::leads_here);
  const heard h = look();
  EXPECT_TRUE(h.passed_on);
  EXPECT_EQ(h.generations, (std::vector<std::uint32_t>{5, 6}));
}

TEST_F(EndedLife, ThatWasCutOffLeadsNowhere) {
  append(3);
  const std::uint64_t at = r_.at.end;
  begin(engine::life_before::leads_here);
  ASSERT_EQ(ftruncate(j_.file, static_cast<off_t>(at + 700)), 0);
  EXPECT_FALSE(look().passed_on);
}

TEST_F(EndedLife, StaysWhereItIsWhileTheNextHeadIsNotWhole) {
  append(1);
  begin(engine::life_before::leads_here);
  patch(300, {0xEE});
  const std::uint64_t salt = r_.salt;
  heard h;
  EXPECT_FALSE(engine::look_at_life_quietly(&r_, watcher_of(h)));
  EXPECT_EQ(h.lives, 0);
  EXPECT_EQ(r_.salt, salt);
  patch(300, {0});
  EXPECT_TRUE(look().passed_on);
}

// In doubt, as one is whose head is not flushed, or where a flush failed.
TEST_F(EndedLife, IsFollowedByOneInDoubtAsLongAsNothingStandsThere) {
  const auto news = [&] {
    std::vector<std::uint64_t> bytes(engine::journal_size / 8);
    EXPECT_EQ(pread(j_.file, bytes.data(), engine::journal_size, 0), static_cast<ssize_t>(engine::journal_size));
    return engine::look_for_news(&r_, reinterpret_cast<const std::uint8_t*>(bytes.data()));
  };
  begin(engine::life_before::leads_here);
  EXPECT_EQ(news(), engine::journal_news::some);
  look();
  EXPECT_EQ(news(), engine::journal_news::none);
  patch(engine::journal_doubt_at, {1});
  EXPECT_EQ(news(), engine::journal_news::nothing_to_read) << "a writer has to look";
  append(1);
  EXPECT_EQ(news(), engine::journal_news::some);
  look();
  EXPECT_EQ(news(), engine::journal_news::some) << "it may be taken back";
}

// ---- Handles

constexpr int records = 120;

class SleptOverCheckpoints : public ::testing::Test {
 protected:
  void SetUp() override {
    engine::set_cache_blocks(1000);
    install_faulty_os();
    for (handle* h : {&writer_, &reader_}) h->journal = engine::journal_use::on;
    reader_.from_cache = true;
    ASSERT_EQ(writer_.create(path_), 0);
    ASSERT_EQ(engine::csetfile(writer_, 4), 0);
    for (int i = 1; i <= records; ++i) ASSERT_EQ(writer_.insert(sample(i, 300)), 0);
    ASSERT_EQ(reader_.open_for_work(path_), 0);
    for (int i = 1; i <= records; ++i) EXPECT_EQ(small_of(i), sample(i).small);
  }
  void TearDown() override {
    disarm();
    for (handle* h : {&reader_, &writer_})
      if (engine::checkpsp(*h) == 'O' && h->close() != 0) engine::abandon(*h);
    remove_faulty_os();
    engine::checkpoint_at = kept_;
    engine::set_cache_blocks(10);
  }

  int small_of(int i) {
    sample_record found;
    if (reader_.find_name(sample(i).name) != 0 || reader_.read(&found) != 0) return -1;
    return found.small;
  }
  void change(int i, int small) {
    sample_record record = sample(i, 300);
    record.small = static_cast<std::int16_t>(small);
    ASSERT_EQ(writer_.find_name(record.name), 0);
    ASSERT_EQ(writer_.update(record), 0);
  }
  // The life ends with the change: of the three operations the last one stands in the next life.
  void change_and_end_life(int i, int small) {
    sample_record record = sample(i, 300);
    record.small = static_cast<std::int16_t>(small);
    sample_fields fields(record);
    const std::uint64_t salt = life();
    ASSERT_EQ(writer_.find_name(record.name), 0);
    ASSERT_EQ(engine::dlock(writer_), 0);
    engine::checkpoint_at = 1;
    ASSERT_EQ(engine::dupdate(writer_, fields.list), 0);
    engine::checkpoint_at = kept_;
    ASSERT_NE(life(), salt);
    ASSERT_EQ(engine::dunlock(writer_), 0);
  }
  std::uint64_t life() { return writer_.get()->journal->log.salt; }
  // What the reads of all records ask of the system.
  std::size_t calls_of_reading(int changed, int small) {
    clear_events();
    for (int i = 1; i <= records; ++i) EXPECT_EQ(small_of(i), i <= changed ? small : sample(i).small) << i;
    return events().size();
  }
  std::uint64_t group_end() { return writer_.get()->journal->log.at.end; }

  const std::uint64_t kept_ = engine::checkpoint_at;
  scratch_folder folder_;
  std::string path_ = folder_.file("slept");
  handle writer_, reader_;
};

TEST_F(SleptOverCheckpoints, OneCostsNothing) {
  for (int i = 1; i < 10; ++i) change(i, 900);
  change_and_end_life(10, 900);
  EXPECT_EQ(calls_of_reading(10, 900), 0u);
}

TEST_F(SleptOverCheckpoints, OneAndChangesBehindItCostNothing) {
  for (int i = 1; i < 10; ++i) change(i, 900);
  change_and_end_life(10, 900);
  for (int i = 11; i <= 15; ++i) change(i, 900);
  EXPECT_EQ(calls_of_reading(15, 900), 0u);
}

// The end of a transaction over all records, and more than one reading of the journal.
TEST_F(SleptOverCheckpoints, OneBehindALongTransactionCostsNothing) {
  ASSERT_EQ(engine::transbeg(writer_, 3, nullptr), 0);
  for (int i = 1; i <= 30; ++i) change(i, 901);
  engine::checkpoint_at = 1;
  ASSERT_EQ(engine::transend(writer_, 1), 0);
  engine::checkpoint_at = kept_;
  EXPECT_EQ(calls_of_reading(30, 901), 0u);
}

TEST_F(SleptOverCheckpoints, OneAfterTheOtherCostNothing) {
  for (int i = 1; i <= 20; ++i) {
    change_and_end_life(i, 902);
    EXPECT_EQ(calls_of_reading(i, 902), 0u);
  }
}

TEST_F(SleptOverCheckpoints, OneThatARolledBackTransactionCameBeforeCostsNothing) {
  ASSERT_EQ(engine::transbeg(writer_, 3, nullptr), 0);
  for (int i = 1; i <= 5; ++i) change(i, 903);
  ASSERT_EQ(engine::transroll(writer_, nullptr, 0, nullptr), 0);
  change_and_end_life(1, 904);
  EXPECT_EQ(calls_of_reading(1, 904), 0u);
}

TEST_F(SleptOverCheckpoints, TwoCostAReadingOfTheFile) {
  change_and_end_life(1, 905);
  change_and_end_life(2, 905);
  EXPECT_NE(calls_of_reading(2, 905), 0u);
  change_and_end_life(3, 905);
  EXPECT_EQ(calls_of_reading(3, 905), 0u);
}

TEST_F(SleptOverCheckpoints, OneWhoseLifeGrewOverTheReadersPlaceCostsAReadingOfTheFile) {
  change_and_end_life(1, 906);
  ASSERT_EQ(small_of(1), 906);
  change(2, 906);
  ASSERT_EQ(small_of(2), 906);
  const std::uint64_t place = group_end();
  change(3, 906);
  change_and_end_life(4, 906);
  int i = 5;
  for (; group_end() <= place; ++i) change(i, 906);
  EXPECT_NE(calls_of_reading(i - 1, 906), 0u);
}

// The group was appended, and could not be flushed; the next one stands in its place.
TEST_F(SleptOverCheckpoints, OneBehindARefusedChangeCostsNothing) {
  change(1, 907);
  ASSERT_EQ(small_of(1), 907);
  fail_call(os_call::flush, 1, false);
  sample_record record = sample(2, 300);
  record.small = 999;
  ASSERT_EQ(writer_.find_name(record.name), 0);
  EXPECT_NE(writer_.update(record), 0);
  disarm();
  change(2, 907);
  change_and_end_life(3, 907);
  EXPECT_EQ(calls_of_reading(3, 907), 0u);
}

// A program that keeps no journal wrote between: the life that it ended leads nowhere.
TEST_F(SleptOverCheckpoints, OneBehindAProgramWithoutAJournalCostsAReadingOfTheFile) {
  change(1, 908);
  ASSERT_EQ(small_of(1), 908);
  handle foreign;
  const std::string journal = path_ + ".jnl";
  const std::string aside = path_ + ".aside";
  ASSERT_EQ(rename(journal.c_str(), aside.c_str()), 0);
  ASSERT_EQ(foreign.open_for_work(path_), 0);
  sample_record record = sample(2, 300);
  record.small = 908;
  ASSERT_EQ(foreign.find_name(record.name), 0);
  ASSERT_EQ(foreign.update(record), 0);
  ASSERT_EQ(foreign.close(), 0);
  ASSERT_EQ(rename(aside.c_str(), journal.c_str()), 0);
  const std::uint64_t before = life();
  change(3, 908);
  ASSERT_NE(life(), before);
  EXPECT_NE(calls_of_reading(3, 908), 0u);
}

// While the file is flushed at a checkpoint readers take their locks for what they miss.
TEST_F(SleptOverCheckpoints, NobodyIsKeptWaitingByOne) {
  static int found;
  found = 0;
  handle other;
  other.journal = engine::journal_use::on;
  ASSERT_EQ(other.open_for_work(path_), 0);
  static handle* misses;
  misses = &other;
  static int flushes;
  flushes = 0;
  engine::os_ops ops = engine::os();
  ops.flush = [](int file) {
    sample_record record;
    // The first flush is that of the change.
    if (++flushes == 2 && misses->find_name(sample(777).name) == 0 && misses->read(&record) == 0) found = record.number;
    return engine::linux_ops.flush(file);
  };
  engine::set_os_ops(&ops);
  engine::checkpoint_at = 1;
  EXPECT_EQ(writer_.insert(sample(777)), 0);
  engine::checkpoint_at = kept_;
  install_faulty_os();
  EXPECT_GE(flushes, 2);
  EXPECT_EQ(found, sample(777).number);
  ASSERT_EQ(other.close(), 0);
}

// A change is three operations, with a flush each: a lock, an update, an unlock.  The update of the
// first one ends the life: then the file is flushed, and the new head.  At each flush the reader
// looks, and sees what has ended by then.
TEST_F(SleptOverCheckpoints, OneThatIsUnderWayCostsNothing) {
  std::vector<int> seen;
  int asked = 0;
  static std::function<void()> look;
  look = [&] {
    clear_events();
    seen.push_back(small_of(7));
    for (const os_event& e : events()) asked += e.call != os_call::probe ? 1 : 0;
  };
  engine::os_ops ops = engine::os();
  ops.flush = [](int file) {
    look();
    return engine::linux_ops.flush(file);
  };
  engine::set_os_ops(&ops);
  change(6, 909);
  seen.clear();
  change_and_end_life(7, 910);
  change(7, 911);
  EXPECT_EQ(small_of(7), 911);
  install_faulty_os();
  const int was = sample(7).small;
  EXPECT_EQ(seen, (std::vector<int>{was, was, 910, 910, 910, 910, 910, 911}));
  EXPECT_EQ(asked, 0);
}

// A reader that sleeps at random beside two writers, with faults; each time it wakes it answers what
// a handle does that was opened just then.
class beside_writers {
 public:
  explicit beside_writers(unsigned seed) : random_(seed) {}
  int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
  void fault() {
    constexpr os_call kinds[] = {os_call::write, os_call::read, os_call::flush, os_call::lock, os_call::allocate};
    fail_call(kinds[below(5)], 1 + below(30), below(3) == 0);
  }
  // What it comes to is no matter.
  void act(handle& h) {
    sample_record record = sample(1 + below(80), static_cast<std::size_t>(100 + below(500)));
    record.small = static_cast<std::int16_t>(below(30000));
    switch (below(12)) {
      case 0:
        if (h.find_name(record.name) == 0) h.remove();
        break;
      case 1:
      case 2:
        h.insert(record);
        break;
      case 3:
        engine::transbeg(h, 3, nullptr);
        break;
      case 4:
      case 5:
        engine::transend(h, 1);
        break;
      case 6:
        engine::transroll(h, nullptr, 0, nullptr);
        break;
      case 7:
        call(h);
        break;
      default:
        if (h.find_name(record.name) == 0) h.update(record);
        break;
    }
  }

 private:
  // Nobody else may be asked for anything until its end, and its transaction is its own.
  void call(handle& h) {
    if (h.get()->transtype != 0 || h.get()->held) return;
    engine::begin_call(h);
    for (int i = below(4); i > 0; --i) act(h);
    if (h.get()->transtype != 0) engine::transend(h, 1);
    engine::end_call(h);
  }

  std::mt19937 random_;
};

// What the reads of all records answer.
struct answer {
  int code;
  sample_record record;   // if that is 0
  bool operator==(const answer&) const = default;
};
std::vector<answer> all_answers(handle& h) {
  std::vector<answer> answers;
  for (int i = 1; i <= 80; ++i) {
    sample_record record;
    int code = h.find_name(sample(i).name);
    if (code == 0) code = h.read(&record);
    answers.push_back({code, code == 0 ? record : sample_record{}});
  }
  return answers;
}

TEST_F(SleptOverCheckpoints, AtRandomItReadsWhatTheFileHas) {
  engine::checkpoint_at = 8 * 1024;
  handle third;
  third.journal = engine::journal_use::on;
  ASSERT_EQ(third.open_for_work(path_), 0);
  int compared = 0;
  int lives_slept = 0;
  for (const bool faults : {false, true}) {
    beside_writers work(faults ? 4712 : 4711);
    for (int step = 0; step < 3000 && !HasFailure(); ++step) {
      SCOPED_TRACE((faults ? "faults, step " : "step ") + std::to_string(step));
      const std::uint64_t then = life();
      for (int sleep = work.below(work.below(4) == 0 ? 60 : 8); sleep >= 0; --sleep) {
        if (faults && work.below(20) == 0) work.fault();
        work.act(work.below(3) == 0 ? third : writer_);
        disarm();
      }
      lives_slept += life() != then ? 1 : 0;
      const std::vector<answer> seen = all_answers(reader_);
      handle fresh;
      fresh.from_cache = false;
      fresh.journal = engine::journal_use::on;
      if (fresh.open(path_, 'S', 1) != 0) continue;
      EXPECT_TRUE(seen == all_answers(fresh));
      ++compared;
    }
  }
  EXPECT_GT(compared, 3000);
  EXPECT_GT(lives_slept, 1000);
  if (third.close() != 0) engine::abandon(third);
}

}  // namespace
}  // namespace zvrdb::test
