// Random operations on one or two handles against a plain map.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <optional>
#include <random>

#include "engine/engine_handle.h"
#include "engine/every_record.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

struct model_case {
  const char* name;
  unsigned seed;
  int handles;
  unsigned cache_blocks;
  int byte_order;
  char access;
  engine::journal_use journal = engine::journal_use::off;
  bool from_cache = false;
};

class Model : public ::testing::TestWithParam<model_case> {
 protected:
  void SetUp() override {
    path_ = folder_.file("model");
    const char* given = std::getenv("ZVR_TEST_SEED");
    seed_ = given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : GetParam().seed;
    std::cout << "seed " << seed_ << std::endl;
    random_.seed(seed_);
    engine::set_cache_blocks(GetParam().cache_blocks);
    for (handle& h : h_) {
      h.journal = GetParam().journal;
      h.from_cache = h.from_cache || GetParam().from_cache;
    }
    ASSERT_EQ(h_[0].create(path_, GetParam().access, GetParam().byte_order), 0);
    for (int i = 0; i < GetParam().handles; i++) {
      if (i > 0) {
        ASSERT_EQ(h_[i].open(path_, GetParam().access), 0);
      }
      ASSERT_EQ(engine::csetfile(h_[i], 4), 0);
    }
  }
  void TearDown() override {
    for (handle& h : h_) {
      if (engine::checkpsp(h) != 'O') continue;
      EXPECT_EQ(h.close(), 0);
    }
    engine::set_cache_blocks(10);
  }
  unsigned upto(unsigned n) { return static_cast<unsigned>(random_() % n); }

  sample_record any_record() {
    sample_record record = sample(static_cast<int>(upto(400)), upto(6) ? upto(60) : upto(1500));
    record.number = static_cast<std::int32_t>(upto(50)) - 25;
    record.small = static_cast<std::int16_t>(upto(65536));
    record.weight = static_cast<double>(upto(1000)) / 16 - 30;
    record.group = "g" + std::to_string(upto(20));
    return record;
  }
  std::optional<std::string> any_name() {
    if (model_.empty()) return {};
    auto at = model_.lower_bound(sample(static_cast<int>(upto(400))).name);
    return (at == model_.end() ? model_.begin() : at)->first;
  }

  void insert(int i) {
    sample_record record = any_record();
    bool exists = model_.count(record.name) > 0;
    ASSERT_EQ(h_[i].insert(record), exists ? engine::e_not_found : 0) << record.name;
    place_[i].reset();
    if (exists) return;
    model_[record.name] = record;
    place_[i] = record.name;
  }
  void update(int i) {
    std::optional<std::string> name = any_name();
    if (!name) return;
    ASSERT_EQ(h_[i].find_name(*name), 0) << *name;
    sample_record record = any_record();
    if (upto(3)) record.name = *name;
    bool clash = record.name != *name && model_.count(record.name) > 0;
    ASSERT_EQ(h_[i].update(record), clash ? engine::e_not_found : 0) << *name << " to " << record.name;
    place_[i].reset();
    if (clash) return;
    model_.erase(*name);
    model_[record.name] = record;
    if (record.name == *name) place_[i] = *name;
  }
  void remove(int i) {
    std::optional<std::string> name = any_name();
    if (!name) return;
    ASSERT_EQ(h_[i].find_name(*name), 0) << *name;
    ASSERT_EQ(h_[i].remove(), 0) << *name;
    model_.erase(*name);
    place_[i] = *name;
  }
  void read_here(int i, const sample_record& expected) {
    sample_record found;
    ASSERT_EQ(h_[i].read(&found), 0);
    ASSERT_EQ(found, expected);
  }
  void find(int i) {
    std::string name = sample(static_cast<int>(upto(400))).name;
    auto at = model_.lower_bound(name);
    bool equal = at != model_.end() && at->first == name;
    place_[i].reset();
    switch (1 + upto(5)) {
      case engine::find_equal:
        ASSERT_EQ(h_[i].find_name(name), equal ? 0 : engine::e_not_found);
        if (!equal) return;
        break;
      case engine::find_greater:
        if (equal) ++at;
        ASSERT_EQ(h_[i].find_name(name, engine::find_greater), at == model_.end() ? engine::e_not_found : 0);
        if (at == model_.end()) return;
        break;
      case engine::find_greater_equal:
        ASSERT_EQ(h_[i].find_name(name, engine::find_greater_equal), at == model_.end() ? engine::e_not_found : equal ? 0 : 2);
        if (at == model_.end()) return;
        break;
      case engine::find_less:
        ASSERT_EQ(h_[i].find_name(name, engine::find_less), at == model_.begin() ? engine::e_not_found : 0);
        if (at == model_.begin()) return;
        --at;
        break;
      case engine::find_less_equal:
        if (!equal && at == model_.begin()) {
          ASSERT_EQ(h_[i].find_name(name, engine::find_less_equal), engine::e_not_found);
          return;
        }
        ASSERT_EQ(h_[i].find_name(name, engine::find_less_equal), equal ? 0 : 3);
        if (!equal) --at;
        break;
      default: break;
    }
    read_here(i, at->second);
    place_[i] = at->first;
  }
  // From a known place the steps give the neighbours, whoever changed the file meanwhile.
  void step(int i) {
    if (!place_[i]) return;
    bool forward = upto(2) == 0;
    int result = engine::dseq(h_[i], 1, forward ? engine::seq_next : engine::seq_previous);
    auto at = forward ? model_.upper_bound(*place_[i]) : model_.lower_bound(*place_[i]);
    bool none = forward ? at == model_.end() : at == model_.begin();
    ASSERT_EQ(result, none ? engine::e_not_found : 0) << (forward ? "next of " : "previous of ") << *place_[i];
    place_[i].reset();
    if (none) return;
    if (!forward) --at;
    read_here(i, at->second);
    place_[i] = at->first;
  }
  void duplicates(int i) {
    std::int32_t number = static_cast<std::int32_t>(upto(50)) - 25;
    std::size_t expected = 0;
    for (const auto& [name, record] : model_) expected += record.number == number;
    std::size_t found = 0;
    int result = engine::dfind(h_[i], 3, &number, 3, engine::find_equal);
    ASSERT_EQ(result, expected ? 0 : engine::e_not_found);
    for (; result == 0; result = engine::dseq(h_[i], 3, engine::seq_next)) {
      sample_record record;
      ASSERT_EQ(h_[i].read(&record), 0);
      if (record.number != number) break;
      ASSERT_EQ(record, model_.at(record.name));
      found++;
    }
    ASSERT_EQ(found, expected);
  }
  void transaction(int i) {
    int other = GetParam().handles - 1 - i;
    if (owner_ < 0) {
      ASSERT_EQ(engine::transbeg(h_[i], 3, nullptr), 0);
      owner_ = i;
      before_ = model_;
      return;
    }
    if (owner_ != i && other == owner_) {
      ASSERT_EQ(engine::transstat(h_[i]), engine::e_trans_busy);
      return;
    }
    if (upto(2)) {
      ASSERT_EQ(engine::transend(h_[i], 1), 0);
    } else {
      ASSERT_EQ(engine::transroll(h_[i], nullptr, 0, nullptr), 0);
      model_ = before_;
    }
    place_[0].reset();
    place_[1].reset();
    owner_ = -1;
  }
  void compare_all(int i) {
    for (int key = 1; key <= 5; key++) {
      std::size_t count = 0;
      for (int result = engine::dseq(h_[i], key, engine::seq_first); result == 0;
           result = engine::dseq(h_[i], key, engine::seq_next)) {
        sample_record found;
        ASSERT_EQ(h_[i].read(&found), 0);
        ASSERT_TRUE(model_.count(found.name)) << found.name;
        ASSERT_EQ(found, model_[found.name]);
        count++;
      }
      ASSERT_EQ(count, model_.size()) << "key " << key;
    }
    place_[i].reset();
  }

  scratch_folder folder_;
  std::string path_;
  unsigned seed_ = 0;
  std::mt19937 random_;
  handle h_[2];
  records model_, before_;
  std::optional<std::string> place_[2];   // where the cursor of key 1 stands, when that is known
  int owner_ = -1;                        // the handle in a transaction
};

TEST_P(Model, TheFileAgreesWithAMap) {
  for (int round = 0; round < 4000; round++) {
    SCOPED_TRACE("seed " + std::to_string(seed_) + ", round " + std::to_string(round));
    int i = owner_ >= 0 && upto(4) ? owner_ : static_cast<int>(upto(static_cast<unsigned>(GetParam().handles)));
    unsigned choice = upto(100);
    bool may_write = owner_ < 0 || owner_ == i;   // changes of others would not be undone
    if (choice < 30) {
      if (may_write) insert(i);
    } else if (choice < 45) {
      if (may_write) update(i);
    } else if (choice < 60) {
      if (may_write) remove(i);
    } else if (choice < 72) {
      find(i);
    } else if (choice < 92) {
      step(i);
    } else if (choice < 95) {
      duplicates(i);
    } else {
      transaction(i);
    }
    if (::testing::Test::HasFatalFailure()) return;
    if (round % 1000 == 999) {
      compare_all(i);
      if (::testing::Test::HasFatalFailure()) return;
    }
  }
  if (owner_ >= 0) {
    ASSERT_EQ(engine::transend(h_[owner_], 1), 0);
  }
  for (int i = 0; i < GetParam().handles; i++) ASSERT_EQ(h_[i].close(), 0);
  check_result result = check_file(path_, true);
  EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
}

INSTANTIATE_TEST_SUITE_P(
    Seeds, Model,
    ::testing::Values(model_case{"OneHandleSmallCache", 1, 1, 10, 1, 'S'}, model_case{"OneHandleBigCache", 2, 1, 300, 1, 'S'},
                      model_case{"OneHandleBigEndian", 3, 1, 10, 2, 'S'}, model_case{"Exclusive", 4, 1, 10, 3, 'E'},
                      model_case{"TwoHandlesSmallCache", 5, 2, 10, 1, 'S'},
                      model_case{"TwoHandlesBigCache", 6, 2, 300, 2, 'S'},
                      model_case{"TwoHandlesOnceMore", 7, 2, 20, 1, 'S'},
                      model_case{"JournalSmallCache", 1, 1, 10, 1, 'S', engine::journal_use::on},
                      model_case{"JournalBigCache", 2, 1, 300, 1, 'S', engine::journal_use::on},
                      model_case{"JournalBigEndian", 3, 1, 10, 2, 'S', engine::journal_use::on},
                      model_case{"JournalExclusive", 4, 1, 10, 3, 'E', engine::journal_use::on},
                      model_case{"JournalTwoHandlesSmallCache", 5, 2, 10, 1, 'S', engine::journal_use::on},
                      model_case{"JournalTwoHandlesBigCache", 6, 2, 300, 2, 'S', engine::journal_use::on},
                      model_case{"JournalTwoHandlesOnceMore", 7, 2, 20, 1, 'S', engine::journal_use::on},
                      model_case{"CachedReads", 8, 1, 300, 1, 'S', engine::journal_use::off, true},
                      model_case{"CachedReadsSmallCache", 9, 2, 10, 2, 'S', engine::journal_use::off, true},
                      model_case{"CachedReadsTwoHandles", 10, 2, 300, 1, 'S', engine::journal_use::off, true},
                      model_case{"CachedReadsJournal", 11, 1, 300, 1, 'S', engine::journal_use::on, true},
                      model_case{"CachedReadsJournalSmallCache", 12, 2, 10, 2, 'S', engine::journal_use::on, true},
                      model_case{"CachedReadsJournalTwoHandles", 13, 2, 300, 1, 'S', engine::journal_use::on, true}),
    [](const auto& c) { return c.param.name; });

}  // namespace
}  // namespace zvrdb::test
