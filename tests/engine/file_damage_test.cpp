// Any bytes whatever: the reports end with an outcome, without a crash or a read out of
// bounds (which the address sanitizer's build shows).
#include <gtest/gtest.h>

#include <random>

#include "engine/sample_files.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

file_layout small_file(bool big) {
  file_recipe recipe;
  recipe.big_endian = big;
  recipe.key_types = sample_key_types();
  recipe.leaf_limit = 260;
  recipe.inner_limit = 90;
  recipe.free_nodes = 1;
  recipe.spare_nodes = 1;
  for (int i = 1; i <= 4; i++) add_record(&recipe, i, written_fields(big, sample(i, i == 2 ? 400 : 10)));
  add_free_number(&recipe, 9);
  add_lock(&recipe, 19, std::string(1, '\0'), 2, 3);
  recipe.transaction = log_chain{7, {{4, ""}, {1, leaf_form(big, {3, bytes32(big, 5), 40, ""})}, {5, ""}}};
  return build_file(recipe);
}

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
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, FileDamage, ::testing::Values(false, true),
                         [](const auto& order) { return order.param ? "BigEndian" : "LittleEndian"; });

TEST_P(FileDamage, ReportsEndOnEveryFlippedBit) {
  file_layout layout = small_file(GetParam());
  std::string path = folder_.file("flipped");
  int found = 0;
  for (std::size_t byte = 0; byte < layout.bytes.size(); byte++) {
    // Spare bytes are plentiful and alike: of those one bit in eight will do.
    bool dull = layout.bytes[byte] == 0 && byte > 1024;
    for (int bit = 0; bit < 8; bit++) {
      if (dull && bit != static_cast<int>(byte % 8)) continue;
      std::vector<unsigned char> bytes = layout.bytes;
      bytes[byte] = static_cast<unsigned char>(bytes[byte] ^ (1U << bit));
      write_file(path, bytes);
      found += run_reports(path) != engine::report_outcome::sound;
    }
  }
  EXPECT_GT(found, 5000);
}

TEST_P(FileDamage, ReportsEndOnEveryLength) {
  file_layout layout = small_file(GetParam());
  std::string path = folder_.file("cut");
  for (std::size_t length = 0; length < layout.bytes.size(); length += length < 1100 ? 1 : 7) {
    write_file(path, {layout.bytes.begin(), layout.bytes.begin() + static_cast<std::ptrdiff_t>(length)});
    EXPECT_NE(run_reports(path), engine::report_outcome::sound) << length;
  }
}

TEST_P(FileDamage, ReportsEndOnRandomNodes) {
  file_layout layout = small_file(GetParam());
  std::string path = folder_.file("random");
  std::mt19937 random(4711);
  for (int round = 0; round < 500; round++) {
    std::vector<unsigned char> bytes = layout.bytes;
    std::size_t first = 1024 * (random() % (bytes.size() / 1024)) + random() % 200;
    for (std::size_t i = first; i < bytes.size() && i < first + 300; i++) bytes[i] = static_cast<unsigned char>(random());
    write_file(path, bytes);
    run_reports(path);
  }
}

}  // namespace
}  // namespace zvrdb::test
