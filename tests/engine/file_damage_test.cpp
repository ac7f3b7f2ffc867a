// Any bytes whatever: the reports end with an outcome, without a crash or a read out of
// bounds (which the address sanitizer's build shows).
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <set>

#include "engine/damaged_images.h"
#include "engine/engine_handle.h"
#include "engine/every_record.h"
#include "engine/sample_files.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

engine::report_outcome run_reports(const std::string& path) {
  std::string reason;
  engine::file_summary summary;
  engine::summarize_file(path.c_str(), &summary, &reason);
  std::size_t bytes = 0;
  auto entry_fn = [](void* context, const engine::dump_entry& entry) {
    *static_cast<std::size_t*>(context) += entry.value.size() + entry.data.size();
    return true;
  };
  engine::dump_file(path.c_str(), nullptr, entry_fn, &bytes, &reason);
  EXPECT_LT(bytes, 100000U);
  return check_file(path, true).outcome;
}

class FileDamage : public ::testing::TestWithParam<bool> {
 protected:
  scratch_folder folder_;
  std::string path_ = folder_.file("damaged");
  std::vector<unsigned char> image_ = image_of_all_parts(GetParam(), 260);
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, FileDamage, ::testing::Values(false, true),
                         [](const auto& order) { return order.param ? "BigEndian" : "LittleEndian"; });

TEST_P(FileDamage, ReportsEndOnEveryFlippedBit) {
  int found = 0;
  for_each_flipped_bit(image_, 1024, 1, path_, [&] { found += run_reports(path_) != engine::report_outcome::sound; });
  EXPECT_GT(found, 5000);
}

// What the deep check passes over is told by a code to who uses the file, or it costs nothing:
// each record is there as it was, by each of its keys, and the file goes on working.  But for
// bodies: a record's own checksum is that of its last bytes alone, so that a value before them may
// be another one; no record is missing or too many by that.  ZVR_TORTURE=1 tries every bit.
TEST_P(FileDamage, AFlippedBitIsFoundOrToldOrHarmless) {
  constexpr int stored = 6, first = 71;
  file_recipe recipe;
  recipe.big_endian = GetParam();
  recipe.key_types = sample_key_types();
  recipe.leaf_limit = 260;
  recipe.inner_limit = 90;
  recipe.free_nodes = 1;
  recipe.spare_nodes = 3;
  records all;
  for (int i = 1; i <= stored; i++) {
    const sample_record record = sample(first + i);
    all[record.name] = record;
    add_record(&recipe, i, written_fields(GetParam(), record));
  }
  add_free_number(&recipe, 9);
  const std::vector<unsigned char> image = build_file(recipe).bytes;
  write_file(path_, image);
  ASSERT_EQ(check_file(path_, true).outcome, engine::report_outcome::sound);
  int found = 0, told = 0, in_bodies = 0, harmless = 0;
  const auto use = [&] {
    handle h;
    if (h.open_for_work(path_) != 0) return ++told;
    EXPECT_EQ(engine::transstat(h), 0);
    bool another_body = false;
    for (const int key : {1, 2, 3, 4, 5}) {
      std::set<std::string> names;
      for (int at = engine::dseq(h, key, engine::seq_first); at == 0; at = engine::dseq(h, key, engine::seq_next)) {
        sample_record record;
        if (h.read(&record) != 0) return ++told;
        const auto wanted = all.find(record.name);
        another_body = another_body || wanted == all.end() || !(wanted->second == record);
        names.insert(record.name);
      }
      EXPECT_EQ(names.size(), static_cast<std::size_t>(stored)) << "by key " << key;
    }
    if (another_body) return ++in_bodies;
    for (int i = 50; i < 54; i++) EXPECT_EQ(h.insert(sample(i, 200)), 0);
    EXPECT_EQ(h.find_name(sample(first + 3).name), 0);
    EXPECT_EQ(h.remove(), 0);
    EXPECT_EQ(h.close(), 0);
    const check_result checked = check_file(path_, true);
    EXPECT_EQ(checked.outcome, engine::report_outcome::sound) << checked.text();
    return ++harmless;
  };
  const bool torture = std::getenv("ZVR_TORTURE") != nullptr;
  std::mt19937 coin(3);
  for_each_flipped_bit(image, torture ? image.size() : 352, 16, path_, [&] {
    if (!torture && coin() % 3 != 0) return;
    if (check_file(path_, true).outcome != engine::report_outcome::sound)
      ++found;
    else
      use();
  });
  EXPECT_GT(found, 1000);
  EXPECT_GT(harmless, 100);
  EXPECT_LE(in_bodies, stored * 75 * 8);   // of 75 bytes each
  std::cout << found + told + in_bodies + harmless << " points: " << found << " flipped bits were found, " << told
            << " are told by a code, " << in_bodies << " are in bodies, " << harmless << " are harmless" << std::endl;
}

TEST_P(FileDamage, ReportsEndOnEveryLength) {
  for_each_length(image_, 1100, 7, path_, [&] { EXPECT_NE(run_reports(path_), engine::report_outcome::sound); });
}

TEST_P(FileDamage, ReportsEndOnRandomNodes) {
  for_random_pages(image_, 500, 0, 200, 300, path_, [&] { run_reports(path_); });
}

}  // namespace
}  // namespace zvrdb::test
