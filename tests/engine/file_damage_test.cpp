// Any bytes whatever: the reports end with an outcome, without a crash or a read out of
// bounds (which the address sanitizer's build shows).
#include <gtest/gtest.h>

#include "engine/damaged_images.h"
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

TEST_P(FileDamage, ReportsEndOnEveryLength) {
  for_each_length(image_, 1100, 7, path_, [&] { EXPECT_NE(run_reports(path_), engine::report_outcome::sound); });
}

TEST_P(FileDamage, ReportsEndOnRandomNodes) {
  for_random_pages(image_, 500, 0, 200, 300, path_, [&] { run_reports(path_); });
}

}  // namespace
}  // namespace zvrdb::test
