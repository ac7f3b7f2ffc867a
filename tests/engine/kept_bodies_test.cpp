// Bodies that are kept in one piece: what comes from them is what a read of the file would give.
#include "engine/kept_bodies.h"

#include <gtest/gtest.h>

#include <random>

#include "engine/agent.h"
#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/entry_update.h"
#include "engine/faulty_os.h"
#include "engine/node_cache.h"
#include "engine/psp.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

constexpr int records = 200;

class KeptBodies : public ::testing::TestWithParam<engine::journal_use> {
 protected:
  void SetUp() override {
    engine::set_cache_blocks(2000);
    for (handle* h : {&h_, &other_}) {
      h->journal = GetParam();
      h->from_cache = true;
    }
    ASSERT_EQ(h_.create(path_), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    for (int i = 1; i <= records; ++i) ASSERT_EQ(h_.insert(sample(i, 300)), 0);
  }
  void TearDown() override {
    other_.close();
    h_.close();
    engine::set_cache_blocks(10);
  }

  // Three times: the second read keeps it, the third one takes it.
  static sample_record get(handle& h, int i) {
    sample_record found;
    for (int time = 0; time < 3; ++time) {
      EXPECT_EQ(h.find_name(sample(i).name), 0);
      EXPECT_EQ(h.read(&found), 0);
    }
    return found;
  }
  static bool is_kept(handle& h) { return engine::recall_body(h, engine::current_record(h)) != nullptr; }
  int change(handle& h, const sample_record& record) {
    const int found = h.find_name(record.name);
    return found != 0 ? found : h.update(record);
  }
  static sample_record changed(int i) {
    sample_record record = sample(i, 300);
    record.payload[9] = '#';
    record.small = 77;
    return record;
  }

  scratch_folder folder_;
  std::string path_ = folder_.file("bodies");
  handle h_, other_;
};

class BodiesWithoutAJournal : public KeptBodies {};

TEST_P(KeptBodies, AreWhatAReadGave) {
  int kept = 0;
  for (int i = 1; i <= records; ++i) {
    EXPECT_EQ(get(h_, i), sample(i, 300));
    kept += is_kept(h_) ? 1 : 0;
  }
  EXPECT_GE(kept, records - 2) << "but those whose searches are remembered at one place";
}

TEST_P(KeptBodies, AreThoseReadASecondTime) {
  sample_record found;
  for (const bool kept : {false, true, true}) {
    ASSERT_EQ(h_.find_name(sample(5).name), 0);
    ASSERT_EQ(h_.read(&found), 0);
    EXPECT_EQ(is_kept(h_), kept);
  }
}

TEST_P(KeptBodies, LeaveTheBlockAsAReadDoes) {
  ASSERT_EQ(h_.find_name(sample(5).name), 0);
  sample_record found;
  ASSERT_EQ(h_.read(&found), 0);
  const engine::PSP* p = h_;
  const engine::PSP before = *p;
  const engine::cursor at = *p->cursors[engine::key_bodies - 1];
  ASSERT_EQ(h_.read(&found), 0);
  ASSERT_TRUE(is_kept(h_));
  ASSERT_EQ(h_.find_name(sample(5).name), 0);
  ASSERT_EQ(h_.read(&found), 0);
  EXPECT_EQ(std::memcmp(p->keybuf, before.keybuf, sizeof before.keybuf), 0);
  EXPECT_EQ(std::memcmp(p->cursors[engine::key_bodies - 1], &at, sizeof at), 0);
  for (const auto field : {&engine::PSP::keyno, &engine::PSP::recno, &engine::PSP::datalen, &engine::PSP::datafull,
                           &engine::PSP::status, &engine::PSP::cmpfull, &engine::PSP::cmpkey, &engine::PSP::keylen,
                           &engine::PSP::pieceln})
    EXPECT_EQ(p->*field, before.*field);
  EXPECT_EQ(p->piece, before.piece);
}

TEST_P(KeptBodies, AreReadAnewBehindAChangeOfTheHandle) {
  get(h_, 5);
  ASSERT_EQ(change(h_, changed(5)), 0);
  EXPECT_EQ(get(h_, 5), changed(5));
  EXPECT_EQ(get(h_, 6), sample(6, 300)) << "a neighbour";
}

TEST_P(KeptBodies, AreReadAnewBehindAChangeOfAnotherHandle) {
  ASSERT_EQ(other_.open_for_work(path_), 0);
  for (int i = 1; i <= records; ++i) get(h_, i);
  for (int i = 1; i <= records; i += 3) ASSERT_EQ(change(other_, changed(i)), 0);
  for (int i = 1; i <= records; ++i) EXPECT_EQ(get(h_, i), i % 3 == 1 ? changed(i) : sample(i, 300)) << i;
}

TEST_P(KeptBodies, AreReadAnewBehindAChangeOfAnotherProcess) {
  agent writer;
  ASSERT_EQ(writer.tell("open " + path_), 0);
  for (int i = 1; i <= records; ++i) get(h_, i);
  for (int i = 1; i <= records; i += 7) {
    ASSERT_EQ(writer.tell("find " + std::to_string(i)), 0);
    ASSERT_EQ(writer.tell("change " + std::to_string(i) + " " + std::to_string(1000 + i)), 0);
    EXPECT_EQ(get(h_, i).number, 1000 + i);
  }
  EXPECT_EQ(get(h_, 2), sample(2, 300));
}

// The leaves of a body may have left the cache when another process changes it.
TEST_P(KeptBodies, AreReadAnewWhenTheirLeavesLeftTheCacheBeforeTheChange) {
  ASSERT_EQ(h_.close(), 0);
  engine::set_cache_blocks(16);
  ASSERT_EQ(h_.open_for_work(path_), 0);
  agent writer;
  ASSERT_EQ(writer.tell("open " + path_), 0);
  get(h_, 5);
  // Their bodies are kept in other places.
  for (int i = 6; i <= 20; ++i) get(h_, i);
  for (int i = 100; i <= 160; ++i) ASSERT_EQ(h_.find_name(sample(i).name), 0);
  ASSERT_EQ(writer.tell("find 5"), 0);
  ASSERT_EQ(writer.tell("change 5 4711"), 0);
  EXPECT_EQ(get(h_, 5).number, 4711);
}

TEST_P(KeptBodies, AreAsBeforeBehindARollBack) {
  get(h_, 5);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(change(h_, changed(5)), 0);
  EXPECT_EQ(get(h_, 5), changed(5)) << "the handle's own";
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(get(h_, 5), sample(5, 300));
}

TEST_P(KeptBodies, AreNotFoundBehindADeletion) {
  get(h_, 5);
  const std::int32_t number = engine::current_record(h_);
  ASSERT_EQ(h_.remove(), 0);
  EXPECT_EQ(h_.find_name(sample(5).name), engine::e_not_found);
  // Its number is the next one's.
  sample_record next = sample(records + 1, 300);
  ASSERT_EQ(h_.insert(next), 0);
  EXPECT_EQ(get(h_, records + 1), next);
  EXPECT_EQ(engine::current_record(h_), number);
}

// The same block, and the same numbers of records, in another file.
TEST_P(KeptBodies, AreOfOneFileOnly) {
  for (int i = 1; i <= records; ++i) get(h_, i);
  ASSERT_EQ(h_.close(), 0);
  ASSERT_EQ(h_.create(folder_.file("another")), 0);
  for (int i = 1; i <= records; ++i) ASSERT_EQ(h_.insert(changed(i)), 0);
  for (int i = 1; i <= records; ++i) EXPECT_EQ(get(h_, i), changed(i));
}

TEST_P(KeptBodies, MovedByASplitAreStillRight) {
  for (int i = 1; i <= records; ++i) get(h_, i);
  for (int i = 1; i <= records; i += 5) {
    sample_record longer = sample(i, 800);
    ASSERT_EQ(change(h_, longer), 0);
  }
  for (int i = 1; i <= records; ++i) EXPECT_EQ(get(h_, i), sample(i, i % 5 == 1 ? 800 : 300)) << i;
}

// Up to the last byte that there is room for, and one more.
TEST_P(KeptBodies, AreKeptUpToTheLengthOfAPlace) {
  const engine::PSP* p = h_;
  ASSERT_EQ(h_.find_name(sample(5).name), 0);
  sample_record found;
  ASSERT_EQ(h_.read(&found), 0);
  const auto rest = static_cast<std::size_t>(engine::longest_kept_body - p->datafull);
  for (const std::size_t more : {rest - 1, rest, rest + 1, rest + 300}) {
    ASSERT_EQ(change(h_, sample(5, 300 + more)), 0);
    EXPECT_EQ(get(h_, 5), sample(5, 300 + more));
    EXPECT_EQ(is_kept(h_), more <= rest) << more;
  }
}

// A buffer of records that is too short meets what it would meet without.
TEST_P(KeptBodies, AnswerAShortBufferAsAReadDoes) {
  get(h_, 5);
  static_cast<engine::PSP*>(h_)->reclen = 100;
  sample_record found;
  ASSERT_EQ(h_.find_name(sample(5).name), 0);
  EXPECT_EQ(h_.read(&found), engine::e_record_length);
  EXPECT_EQ(static_cast<engine::PSP*>(h_)->datalen, 100);
  EXPECT_GT(static_cast<engine::PSP*>(h_)->datafull, 100);
}

// A key value tells values of one number apart, those of bodies too.
TEST_P(KeptBodies, AreFoundByTheirOwnKeyValueOnly) {
  const engine::PSP* p = h_;
  get(h_, 5);
  const std::int32_t number = engine::current_record(h_);
  constexpr std::uint8_t none[] = "";
  constexpr std::uint8_t name[] = "name";
  std::uint8_t data[1000];
  EXPECT_EQ(engine::bfind(h_, engine::key_bodies, name, number, data, sizeof data), engine::e_not_found);
  ASSERT_EQ(engine::badd(h_, engine::key_bodies, name, number, name, 4), 0);
  for (int time = 0; time < 3; ++time) {
    EXPECT_EQ(engine::bfind(h_, engine::key_bodies, name, number, data, sizeof data), 0);
    EXPECT_EQ(p->datalen, 4);
    EXPECT_EQ(std::memcmp(data, name, 4), 0);
    EXPECT_EQ(p->keylen, 5);
    EXPECT_EQ(p->pieceln, 4);
    EXPECT_EQ(get(h_, 5), sample(5, 300));
    EXPECT_EQ(engine::bfind(h_, engine::key_bodies, none, number, data, sizeof data), 0);
    EXPECT_EQ(p->keylen, 1);
    EXPECT_GT(p->datalen, 300);
  }
}

// An operation that failed leaves its nodes in the cache, until others take their
// place: then they are lost.
TEST_P(BodiesWithoutAJournal, AreForgottenWithTheNodesOfAnOperationThatFailed) {
  constexpr unsigned few = 32;   // a power of two: as many bodies are kept
  constexpr int header_and_flag = 2;
  ASSERT_EQ(h_.close(), 0);
  engine::set_cache_blocks(few);
  install_faulty_os();
  ASSERT_EQ(h_.open_for_work(path_), 0);
  ASSERT_EQ(h_.find_name(sample(5).name), 0);
  const std::int32_t number = engine::current_record(h_);
  ASSERT_EQ(engine::dlock(h_), 0);
  sample_record record = changed(5);
  sample_fields fields(record);
  fail_call(os_call::write, header_and_flag + 1, true);
  ASSERT_NE(engine::dupdate(h_, fields.list), 0);
  disarm();
  ASSERT_NE(engine::dunlock(h_), 0) << "the file is known as damaged";
  ASSERT_EQ(get(h_, 5), record) << "out of the cache";
  ASSERT_TRUE(is_kept(h_));
  for (int i = 100; i <= 160; ++i) {
    ASSERT_EQ(h_.find_name(sample(i).name), 0);
    if ((engine::current_record(h_) - number) % static_cast<int>(few) != 0) get(h_, i);
  }
  ASSERT_EQ(h_.find_name(sample(5).name), 0);
  ASSERT_EQ(engine::current_record(h_), number);
  sample_record kept;
  sample_record anew;
  EXPECT_EQ(h_.read(&kept), 0);
  engine::forget_kept_bodies();
  EXPECT_EQ(h_.read(&anew), 0);
  EXPECT_TRUE(kept == anew);
  engine::abandon(h_);
  remove_faulty_os();
}

// Two handles that do this and that, now and then with a fault.
class this_and_that {
 public:
  int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
  sample_record some() {
    sample_record record = sample(1 + below(60), static_cast<std::size_t>(100 + below(500)));
    record.small = static_cast<std::int16_t>(below(30000));
    return record;
  }
  void fault() {
    constexpr os_call kinds[] = {os_call::write, os_call::read,  os_call::flush,
                                 os_call::lock,  os_call::probe, os_call::allocate};
    fail_call(kinds[below(6)], 1 + below(20), below(2) == 0);
  }
  // What it comes to is no matter.
  void act(handle& h) {
    const sample_record record = some();
    switch (below(10)) {
      case 0:
        if (h.find_name(record.name) == 0) h.remove();
        break;
      case 1:
        h.insert(record);
        break;
      case 2:
        engine::transbeg(h, 3, nullptr);
        break;
      case 3:
        engine::transend(h, 1);
        break;
      case 4:
        engine::transroll(h, nullptr, 0, nullptr);
        break;
      case 5:
        engine::begin_call(h);   // nobody else may be asked for anything until its end
        for (int i = below(4); i > 0; --i) act(h);
        engine::end_call(h);
        break;
      default:
        if (h.find_name(record.name) == 0) h.update(record);
        break;
    }
  }

 private:
  std::mt19937 random_{4711};
};

// Reads a record out of what is kept and without: 1 it was kept, 0 not, or it cannot be read.
int compare(handle& h, const std::string& name) {
  sample_record kept;
  sample_record anew;
  if (h.find_name(name) != 0) return 0;
  const bool is = engine::recall_body(h, engine::current_record(h)) != nullptr;
  if (h.read(&kept) != 0) return 0;
  const engine::PSP before = *h.get();
  const engine::cursor at = *before.cursors[engine::key_bodies - 1];
  engine::room_for_body(h, engine::current_record(h))->owner = nullptr;
  EXPECT_EQ(h.read(&anew), 0);
  EXPECT_TRUE(kept == anew);
  const engine::PSP& after = *h.get();
  const engine::cursor& now = *after.cursors[engine::key_bodies - 1];
  EXPECT_EQ(now.cnode, at.cnode);
  EXPECT_EQ(now.cindex, at.cindex);
  EXPECT_EQ(std::memcmp(after.keybuf, before.keybuf, sizeof before.keybuf), 0);
  EXPECT_EQ(after.datafull, before.datafull);
  EXPECT_EQ(after.status, before.status);
  return is ? 1 : 0;
}

TEST_P(KeptBodies, AreWhatIsReadBehindAnything) {
  ASSERT_EQ(h_.close(), 0);
  this_and_that work;
  int compared = 0;
  for (int round = 0; round < 6; ++round) {
    engine::set_cache_blocks(round % 2 == 0 ? 40 : 400);
    install_faulty_os();
    const std::string path = folder_.file("any" + std::to_string(round));
    ASSERT_EQ(h_.create(path), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    for (int i = 1; i <= 60; ++i) ASSERT_EQ(h_.insert(sample(i, 300)), 0);
    ASSERT_EQ(other_.open_for_work(path), 0);
    handle* const both[] = {&h_, &other_};
    for (int step = 0; step < 1000 && !HasFailure(); ++step) {
      SCOPED_TRACE(std::to_string(round) + " " + std::to_string(step));
      if (round % 3 != 0 && work.below(40) == 0) work.fault();
      work.act(*both[work.below(2)]);
      disarm();
      sample_record found;
      for (int i = 0; i < 6; ++i) {
        handle& h = *both[work.below(2)];
        if (h.find_name(work.some().name) == 0) h.read(&found);
      }
      compared += compare(*both[work.below(2)], work.some().name);
    }
    engine::abandon(other_);
    engine::abandon(h_);
    remove_faulty_os();
  }
  EXPECT_GT(compared, 100);
}

INSTANTIATE_TEST_SUITE_P(Off, BodiesWithoutAJournal, ::testing::Values(engine::journal_use::off));
INSTANTIATE_TEST_SUITE_P(Journal, KeptBodies, ::testing::Values(engine::journal_use::off, engine::journal_use::on),
                         [](const auto& use) {
                           return use.param == engine::journal_use::on ? "WithAJournal" : "Without";
                         });

}  // namespace
}  // namespace zvrdb::test
