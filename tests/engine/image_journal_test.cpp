// The before-image journal: what it holds, and every crash undone by it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <random>

#include "engine/crc32c.h"
#include "engine/after_a_crash.h"
#include "engine/engine_handle.h"
#include "engine/every_record.h"
#include "engine/faulty_os.h"
#include "engine/image_journal.h"
#include "engine/memory_disk.h"
#include "engine/node_check.h"
#include "engine/psp.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

constexpr char path[] = "/disk/file";
constexpr char images[] = "/disk/file.images";

disk_image small_file() {
  file_recipe recipe = sample_recipe(false, 30, 600);
  recipe.spare_nodes = 6;   // so that growth comes too
  recipe.free_nodes = 3;
  disk_image start;
  start[path] = {build_file(recipe).bytes, 5000};
  return start;
}

// Changes nothing that a check would see.
void flip(unsigned char* record, std::size_t n) {
  for (std::size_t i = 0; i < n; i++) record[i] = static_cast<unsigned char>(record[i] ^ 0x5A);
}

// ---- What the journal holds

class Images : public ::testing::Test {
 protected:
  void SetUp() override {
    mount_memory_disk(small_file());
    ASSERT_EQ(h_.open_for_work(path), 0);
  }
  void TearDown() override {
    if (engine::checkpsp(h_) == 'O') {
      EXPECT_EQ(h_.close(), 0);
    }
    EXPECT_EQ(disk_open_files(), 0);
    unmount_memory_disk();
  }
  handle h_;
};

TEST_F(Images, AreTheNodesAndTheHeaderAsTheyWereBeforeTheOperation) {
  ASSERT_EQ(engine::dimages(h_, images), 0);
  disk_bytes before = disk_now().at(path).bytes;
  before[214] = before[215] = 0;   // bytes that mean nothing
  const std::uint32_t generation = h_.get()->generation;
  ASSERT_EQ(h_.insert(sample(77, 900)), 0);
  const disk_bytes after = disk_now().at(path).bytes;
  const disk_bytes journal = disk_now().at(images).bytes;
  EXPECT_EQ(engine::load_le32(journal.data()), generation + 1);
  EXPECT_EQ(disk_bytes(journal.begin() + 4, journal.begin() + 352), disk_bytes(before.begin() + 4, before.begin() + 352));
  const std::size_t count = (journal.size() - 1024) / 1048;
  EXPECT_EQ(journal.size(), 1024 + count * 1048);
  ASSERT_GT(count, 2U);
  std::map<std::uint32_t, disk_bytes> kept;
  for (std::size_t i = 0; i < count; i++) {
    const unsigned char* record = journal.data() + 1024 + i * 1048;
    EXPECT_EQ(engine::load_le32(record + 16), i);
    EXPECT_EQ(engine::load_le32(record + 20), generation + 1);
    kept.emplace(engine::load_le32(record + 8), disk_bytes(record + 24, record + 1048));
  }
  const std::size_t old_nodes = static_cast<std::size_t>(engine::load_le32(before.data() + 36));
  for (std::uint32_t n = 0; n < old_nodes; n++) {
    const auto at = static_cast<std::ptrdiff_t>(1024 + 1024 * n);
    const disk_bytes was(before.begin() + at, before.begin() + at + 1024);
    const disk_bytes is(after.begin() + at, after.begin() + at + 1024);
    if (was != is) {
      ASSERT_EQ(kept.count(n), 1U) << n;
      EXPECT_EQ(kept[n], was) << n;
    }
  }
}

TEST_F(Images, AreOnTheDiskBeforeTheFirstByteOfTheOperation) {
  ASSERT_EQ(engine::dimages(h_, images), 0);
  ASSERT_EQ(h_.insert(sample(77)), 0);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  for (int i = 100; i < 130; i++) ASSERT_EQ(h_.insert(sample(i, 700)), 0);
  ASSERT_EQ(engine::transend(h_, 1), 0);
  const std::uint64_t journal = disk_now().at(images).identity;
  bool unflushed = false;
  int writes = 0;
  for (const disk_event& e : disk_events()) {
    if (e.identity == journal) {
      unflushed = e.what == disk_event::kind::write ? true : e.what == disk_event::kind::flush ? false : unflushed;
    } else if (e.what == disk_event::kind::write) {
      ASSERT_FALSE(unflushed);
      writes++;
    }
  }
  EXPECT_GT(writes, 100);
}

TEST_F(Images, LeaveTheFileAsItIsWithoutThem) {
  disk_bytes results[2];
  for (const bool with : {false, true}) {
    if (engine::checkpsp(h_) == 'O') {
      ASSERT_EQ(h_.close(), 0);
    }
    mount_memory_disk(small_file());
    ASSERT_EQ(h_.open_for_work(path), 0);
    if (with) {
      ASSERT_EQ(engine::dimages(h_, images), 0);
    }
    for (int i = 100; i < 150; i++) {
      ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
      ASSERT_EQ(h_.insert(sample(i, i % 7 ? 60 : 2000)), 0);
      ASSERT_EQ(engine::transend(h_, 1), 0);
    }
    ASSERT_EQ(h_.close(), 0);
    results[with] = disk_now().at(path).bytes;
  }
  EXPECT_EQ(results[0], results[1]);
  ASSERT_EQ(h_.open_for_work(path), 0);
}

TEST_F(Images, AreRefusedWhereTheyCannotServe) {
  EXPECT_EQ(engine::dimages(h_, path), engine::e_bad_argument);
  EXPECT_EQ(engine::drestore(h_, images), engine::e_bad_argument);   // shared
  ASSERT_EQ(engine::csetfile(h_, 1), 0);
  EXPECT_EQ(engine::dimages(h_, images), engine::e_level);
  ASSERT_EQ(h_.close(), 0);
  EXPECT_EQ(engine::dimages(h_, images), engine::e_bad_handle);
  ASSERT_EQ(h_.open(path, 'S', 1), 0);
  EXPECT_EQ(engine::dimages(h_, images), engine::e_read_only);
  ASSERT_EQ(h_.close(), 0);
  h_.journal = engine::journal_use::on;
  ASSERT_EQ(h_.open_for_work(path), 0);
  EXPECT_EQ(engine::dimages(h_, images), engine::e_bad_argument);
  ASSERT_EQ(h_.close(), 0);
  ASSERT_EQ(engine::_bopen(h_, path, 'E', 2), 0);
  EXPECT_EQ(engine::drestore(h_, images), engine::e_trans_none);   // no flag
}

TEST_F(Images, ThatDoNotBelongToTheFlagAreNotPutBack) {
  ASSERT_EQ(engine::dimages(h_, images), 0);
  ASSERT_EQ(h_.insert(sample(77)), 0);
  ASSERT_EQ(engine::dimages(h_, nullptr), 0);
  const disk_bytes foreign = disk_now().at(images).bytes;
  for (int i = 100; i < 103; i++) ASSERT_EQ(h_.insert(sample(i)), 0);
  ASSERT_EQ(h_.close(), 0);
  patch_disk(path, 1010, {0xBD, 0x33});
  const disk_bytes before = disk_now().at(path).bytes;
  ASSERT_EQ(engine::_bopen(h_, path, 'E', 2), 0);
  EXPECT_EQ(engine::drestore(h_, images), engine::e_foreign_file);
  EXPECT_EQ(engine::drestore(h_, "/disk/none"), engine::e_not_found);
  patch_disk(images, 8, {0, 0, 0, 1});
  EXPECT_EQ(engine::drestore(h_, images), engine::e_foreign_file);
  EXPECT_EQ(disk_now().at(path).bytes, before);
  ASSERT_EQ(engine::clrwrit(h_), 0);
}

// ---- Crashes

struct milestone {
  std::size_t events;
  records state;
};

class ImageCrash : public ::testing::TestWithParam<bool> {   // whether records are transformed
 protected:
  void TearDown() override { unmount_memory_disk(); }

  void commit(const std::function<void()>& change) {
    ASSERT_EQ(engine::transbeg(*h_, 3, nullptr), 0);
    mark();
    change();
    ASSERT_EQ(engine::transend(*h_, 1), 0);
    committed_ = all_records(h_);
    mark();
  }
  void mark() { milestones_.push_back({disk_events().size(), committed_}); }
  void remove(int i) {
    ASSERT_EQ(h_->find_name(sample(i).name), 0);
    ASSERT_EQ(h_->remove(), 0);
  }
  // Puts, a long value, deletes, a change, growth, splits, a roll-back.
  void run() {
    start_ = small_file();
    mount_memory_disk(start_);
    handle h;
    h_ = &h;
    ASSERT_EQ(h.open_for_work(path), 0);
    committed_ = all_records(&h);
    ASSERT_EQ(engine::dimages(h, images, GetParam() ? flip : nullptr), 0);
    milestones_ = {{0, committed_}};
    commit([&] { ASSERT_EQ(h.insert(sample(200)), 0); });
    commit([&] { ASSERT_EQ(h.insert(sample(201, 2500)), 0); });
    commit([&] { remove(5); });
    commit([&] {
      for (int i = 210; i < 216; i++) ASSERT_EQ(h.insert(sample(i, 300)), 0);
      remove(201);
    });
    ASSERT_EQ(engine::transbeg(h, 3, nullptr), 0);
    for (int i = 220; i < 224; i++) ASSERT_EQ(h.insert(sample(i, 400)), 0);
    ASSERT_EQ(engine::transroll(h, nullptr, 0, nullptr), 0);
    mark();
    ASSERT_EQ(engine::dflush(h), 0);
    ASSERT_EQ(h.close(), 0);
    mark();
    events_ = disk_events();
  }
  static int restore(handle* h) {
    const int opened = engine::_bopen(*h, path, 'E', 2);
    if (opened != 0) return opened;
    const int restored = engine::drestore(*h, images, GetParam() ? flip : nullptr);
    const int closed = h->close();
    return restored == engine::e_trans_none || restored == 0 ? closed : restored;
  }
  void verify(const disk_image& image, std::size_t n) {
    mount_memory_disk(image);
    handle h;
    ASSERT_EQ(restore(&h), 0);
    ASSERT_EQ(h.open_for_work(path), 0);
    settle(&h);
    if (HasFatalFailure()) return;
    const records found = all_records(&h);
    std::size_t step = 0;
    while (step + 1 < milestones_.size() && milestones_[step + 1].events <= n) step++;
    const bool before = found == milestones_[step].state;
    const bool after = step + 1 < milestones_.size() && found == milestones_[step + 1].state;
    ASSERT_TRUE(before || after) << "step " << step << ": " << found.size() << " records";
    ASSERT_EQ(h.insert(sample(399)), 0);
    ASSERT_EQ(h.close(), 0);
    expect_sound_bytes(disk_now().at(path).bytes);
  }
  handle* h_ = nullptr;
  disk_image start_;
  records committed_;
  std::vector<milestone> milestones_;
  std::vector<disk_event> events_;
};

INSTANTIATE_TEST_SUITE_P(Records, ImageCrash, ::testing::Bool(),
                         [](const auto& a) { return a.param ? "Transformed" : "Plain"; });

TEST_P(ImageCrash, AKillBehindAnyWriteLeavesTheOperationWholeOrUndone) {
  run();
  if (HasFatalFailure()) return;
  const std::size_t step = std::getenv("ZVR_TORTURE") ? 1 : 3;
  int points = 0;
  for (std::size_t n = 0; n <= events_.size(); n += step, points++) {
    verify(after_kill(start_, events_, n), n);
    if (HasFatalFailure()) FAIL() << "kill behind event " << n;
  }
  std::cout << points << " points" << std::endl;
}

TEST_P(ImageCrash, APowerCutAtAnyWriteLeavesTheOperationWholeOrUndone) {
  run();
  if (HasFatalFailure()) return;
  const std::size_t step = std::getenv("ZVR_TORTURE") ? 1 : 7;
  std::mt19937 random(17);
  int points = 0;
  for (std::size_t n = 0; n <= events_.size(); n += step) {
    const std::vector<std::size_t> open = undecided_writes(events_, n);
    for (int variant = 0; variant < 4; variant++, points++) {
      write_fates fates;
      for (std::size_t w : open) {
        const unsigned coin = static_cast<unsigned>(random() % 3);
        fates[w] = variant == 0 || coin == 0 ? write_fate::lost : coin == 1 ? write_fate::torn : write_fate::kept;
      }
      verify(after_power_cut(start_, events_, n, fates, &random), n);
      if (HasFatalFailure()) FAIL() << "power cut behind event " << n << ", variant " << variant;
    }
  }
  std::cout << points << " points" << std::endl;
}

TEST_P(ImageCrash, ARestoreThatIsCutShortIsBegunAgain) {
  run();
  if (HasFatalFailure()) return;
  int points = 0;
  for (std::size_t n = 0; n <= events_.size(); n += 11) {
    const disk_image crashed = after_kill(start_, events_, n);
    if (crashed.at(path).bytes[1010] == 0) continue;   // nothing to restore
    mount_memory_disk(crashed);
    handle h;
    ASSERT_EQ(restore(&h), 0);
    const std::vector<disk_event> repair = disk_events();
    for (std::size_t k = 0; k <= repair.size(); k += 2, points++) {
      verify(after_kill(crashed, repair, k), n);
      if (HasFatalFailure()) FAIL() << "event " << n << ", event " << k << " of the restore";
    }
  }
  EXPECT_GT(points, 30);
  std::cout << points << " points" << std::endl;
}

TEST(ImageFaults, EndTheOperationAndLeaveTheFileAlone) {
  scratch_folder folder;
  const std::string file = folder.file("f");
  write_file(file, build_file(sample_recipe(false, 30)).bytes);
  for (const os_call call : {os_call::write, os_call::flush}) {
    install_faulty_os();
    {
      handle h;
      ASSERT_EQ(h.open_for_work(file), 0);
      ASSERT_EQ(engine::dimages(h, folder.file("i").c_str()), 0);
      const std::vector<unsigned char> before = read_file(file);
      clear_events();
      fail_call(call, 1, true);   // the journal comes first
      EXPECT_EQ(h.insert(sample(99)), engine::e_write);
      EXPECT_GE(failures(), 1);
      disarm();
      EXPECT_EQ(read_file(file), before);
      engine::abandon(h);
    }
    EXPECT_EQ(open_files(), 0);
    remove_faulty_os();
    handle again;
    ASSERT_EQ(again.open_for_work(file), 0);
    EXPECT_EQ(again.find_name(sample(99).name), engine::e_not_found);
    EXPECT_EQ(again.find_name(sample(9).name), 0);
  }
}

// ---- The look at a node

struct wrong_node {
  const char* name;
  void (*spoil)(engine::node* v);
  int fault;
};

class NodeCheck : public ::testing::TestWithParam<wrong_node> {};
INSTANTIATE_TEST_SUITE_P(
    Wrong, NodeCheck,
    ::testing::Values(wrong_node{"Sound", [](engine::node*) {}, 0},
                      wrong_node{"RoomNegative", [](engine::node* v) { v->room = -1; }, engine::fault_room},
                      wrong_node{"RoomTooLarge", [](engine::node* v) { v->room = 1007; }, engine::fault_room},
                      wrong_node{"TooManyEntries", [](engine::node* v) { v->count = 144; }, engine::fault_entries},
                      wrong_node{"SameNeighbours", [](engine::node* v) { v->next = v->prev = 4; }, engine::fault_neighbours},
                      wrong_node{"NextBelow", [](engine::node* v) { v->next = -2; }, engine::fault_next},
                      wrong_node{"PrevBelow", [](engine::node* v) { v->prev = -2; }, engine::fault_prev},
                      wrong_node{"FirstChildNegative", [](engine::node* v) { v->child0 = -1; }, engine::fault_child},
                      wrong_node{"ChildNegative", [](engine::node* v) { v->entries[13] = 0xFF; }, engine::fault_child},
                      wrong_node{"KeyNumber", [](engine::node* v) { v->entries[1] = 21; }, engine::fault_entry},
                      wrong_node{"ShortEntry", [](engine::node* v) { v->entries[0] = 5; }, engine::fault_entry},
                      wrong_node{"ShorterThanItsKey", [](engine::node* v) { v->entries[7] = 200; }, engine::fault_data},
                      wrong_node{"BytesBehindTheEntries", [](engine::node* v) { v->entries[500] = 1; }, engine::fault_entries},
                      wrong_node{"EntriesBeyondTheNode", [](engine::node* v) { v->count = 143; std::memset(v->entries + 14, 30, 990); std::memset(v->entries + 14, 255, 1); },
                                 engine::fault_entry}),
    [](const auto& a) { return a.param.name; });

TEST_P(NodeCheck, NamesWhatIsWrong) {
  scratch_folder folder;
  handle h;
  ASSERT_EQ(h.create(folder.file("f")), 0);
  engine::node v = {};
  v.next = 7;
  v.prev = 5;
  v.level = 1;
  v.count = 1;
  v.room = 1006 - 14;
  // A separator of key 1, value 02 'A' 'B', child 9.
  const unsigned char entry[] = {13, 1, 0x80, 5, 0, 0, 0, 2, 'A', 'B', 9, 0, 0, 0};
  std::memcpy(v.entries, entry, sizeof entry);
  GetParam().spoil(&v);
  EXPECT_EQ(engine::check_node(h, v), GetParam().fault);
}

}  // namespace
}  // namespace zvrdb::test
