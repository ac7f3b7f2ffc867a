// A long random run against two plain maps: every answer is foretold, and both sides of
// the record file are compared with the model through the calls and byte by byte.
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>
#include <set>

#include "cmstatus/cms_fixture.h"

namespace cms_test {
namespace {

constexpr unsigned target_names = 12, file_names = 14;

struct ModelStatus {
  unsigned status;
  std::string details;
};

class StatusModel : public CmStatusTest {
 protected:
  void run(unsigned seed, int steps) {
    SCOPED_TRACE(numbered("seed ", seed));
    random.seed(seed);
    for (unsigned i = 0; i < target_names; ++i) ensure_target(numbered("T", i));
    for (unsigned i = 0; i < file_names; ++i) ensure_file(i);
    for (int i = 0; i < steps && !HasFailure(); ++i) {
      SCOPED_TRACE(numbered("step ", i));
      step();
      if (i % 50 == 0) compare_everything();
    }
    compare_everything();
  }

 private:
  using Name = std::pair<std::string, unsigned>;  // target and change file

  unsigned pick(unsigned below) { return static_cast<unsigned>(random() % below); }
  static CfName file(unsigned index) { return cf(numbered("PACK.", index) + ".FIX"); }
  void ensure_target(const std::string& name) {
    if (!targets.insert(name).second) return;
    ASSERT_EQ(put_target(name), DBE_OK);
  }
  void ensure_file(unsigned index) {
    if (!files.insert(index).second) return;
    ASSERT_EQ(put_file(file(index)), DBE_OK);
  }

  void step() {
    const std::string target = numbered("T", pick(target_names + 2));
    const unsigned index = pick(file_names);
    const bool known = targets.count(target) && files.count(index);
    const auto pair = pairs.find({target, index});
    switch (pick(20)) {
      case 0:
        return delete_target(target);
      case 1:
        return delete_status_of_file(index);
      case 2:
        return rename(target, numbered("T", pick(target_names + 2)));
      case 3:
        return delete_file(index);
      case 4:
        return rebuild_or_renew();
      case 5:
        return ensure_target(target);
      case 6:
        return ensure_file(index);
      case 7:
      case 8:
      case 9:
      case 10: {
        EXPECT_EQ(drop(target, file(index)), pair != pairs.end() ? DBE_OK : DBE_NOT_FOUND);
        if (pair != pairs.end()) pairs.erase(pair);
        return;
      }
      default: {
        const ModelStatus value{pick(256), numbered("details ", random())};
        const int expected = !known ? DBE_BAD_CMS_KEY : pair == pairs.end() ? DBE_OK : DBE_RECORD_REPLACED;
        EXPECT_EQ(set(target, file(index), value.status, value.details), expected);
        if (known) pairs[{target, index}] = value;
      }
    }
  }

  void delete_target(const std::string& target) {
    EXPECT_EQ(del(target), targets.erase(target) ? DBE_OK : DBE_NOT_FOUND);
    std::erase_if(pairs, [&](const auto& pair) { return pair.first.first == target; });
  }
  void delete_status_of_file(unsigned index) {
    EXPECT_EQ(db_del_cf_cms(task, file(index).data()), DBE_OK);
    std::erase_if(pairs, [&](const auto& pair) { return pair.first.second == index; });
  }
  void delete_file(unsigned index) {
    const bool used =
        std::any_of(pairs.begin(), pairs.end(), [&](const auto& pair) { return pair.first.second == index; });
    const int expected = !files.count(index) ? DBE_NOT_FOUND : used ? DBE_CMS_EXISTS : DBE_OK;
    EXPECT_EQ(del_file(file(index)), expected);
    if (expected == DBE_OK) files.erase(index);
  }
  void rename(const std::string& from, const std::string& to) {
    if (!targets.count(from) || targets.count(to)) return;
    ASSERT_EQ(db_rename_trg(task, from.c_str(), to.c_str()), DBE_OK);
    targets.erase(from);
    targets.insert(to);
    std::map<Name, ModelStatus> renamed;
    for (const auto& [pair, value] : pairs)
      renamed[{pair.first == from ? to : pair.first, pair.second}] = value;
    pairs = renamed;
  }
  void rebuild_or_renew() {
    if (pick(2)) return new_task();
    ASSERT_EQ(rebuild(), DBE_OK);
  }

  void compare_everything() {
    expect_sides_agree();
    std::map<Pair, unsigned> expected;
    for (const auto& [pair, value] : pairs)
      expected[{number(pair.first), file_number(file(pair.second))}] = value.status;
    EXPECT_EQ(stored_pairs(task).by_target, expected);
    for (const unsigned index : files) {
      const FileList list = by_file(file(index));
      EXPECT_EQ(list.rc, DBE_OK);
      for (const std::string& target : targets) {
        const auto pair = pairs.find({target, index});
        EXPECT_EQ(list.list[number(target)], pair == pairs.end() ? 15 : pair->second.status) << target;
      }
    }
    for (const std::string& target : targets) compare_target(target);
    for (const auto& [pair, value] : pairs) {
      const StatusRecord read = status(pair.first, file(pair.second));
      EXPECT_EQ(read.rc, DBE_OK);
      EXPECT_EQ(read.status(), value.status);
      EXPECT_STREQ(read.details().substr(0, value.details.size()).c_str(), value.details.c_str());
    }
  }
  void compare_target(const std::string& target) {
    std::multiset<std::uint32_t> expected;
    for (const auto& [pair, value] : pairs)
      if (pair.first == target) expected.insert(listed(file(pair.second), value.status));
    const TargetList list = by_target(target);
    EXPECT_TRUE(list.rc == DBE_OK || (list.rc == DBE_NOT_FOUND && expected.empty())) << list.rc;
    EXPECT_EQ(std::multiset<std::uint32_t>(list.entries.begin(), list.entries.end()), expected);
  }

  std::mt19937 random;
  std::set<std::string> targets;
  std::set<unsigned> files;
  std::map<Name, ModelStatus> pairs;
};

TEST_F(StatusModel, ForetellsEveryAnswerOfARandomRun) {
  run(1, 600);
}
TEST_F(StatusModel, ForetellsEveryAnswerOfAnotherRandomRun) {
  const char* given = std::getenv("ZVR_TEST_SEED");
  const unsigned seed =
      given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device{}();
  std::cout << "seed " << seed << " (ZVR_TEST_SEED repeats it)\n";
  run(seed, 400);
}

}  // namespace
}  // namespace cms_test
