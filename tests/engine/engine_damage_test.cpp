// A damaged file: every call of the engine ends with a code, without a crash, a hang or
// a read out of bounds (which the address sanitizer's build shows).
#include <gtest/gtest.h>
#include <unistd.h>

#include "engine/damaged_images.h"
#include "engine/engine_handle.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

// A walk that can't end by itself on a damaged chain is cut.
void walk(handle* h, int key, int first, int step) {
  int result = engine::dseq(*h, key, first);
  for (int i = 0; i < 60 && result == 0; i++) {
    sample_record record;
    h->read(&record);
    result = engine::dseq(*h, key, step);
  }
}

void run_script(const std::string& path) {
  handle h;
  int result = h.open(path);
  if (result == engine::e_write_flag && engine::_bopen(h, path.c_str(), 'E', 2) == 0) {
    engine::clrwrit(h);
    engine::cclose(h);
    if (engine::checkpsp(h) == 'O') engine::abandon(h);
    result = h.open(path);
  }
  if (result) return;
  engine::csetfile(h, 4);
  if (engine::transstat(h) == engine::e_trans_interrupted) engine::transroll(h, nullptr, 0, nullptr);
  walk(&h, 1, engine::seq_first, engine::seq_next);
  walk(&h, 3, engine::seq_last, engine::seq_previous);
  engine::transbeg(h, 3, nullptr);
  h.insert(sample(50, 500));
  if (h.find_name(sample(2).name) == 0) {
    sample_record changed = sample(2, 30);
    changed.number = 77;
    h.update(changed);
  }
  if (h.find_name(sample(3).name, engine::find_greater_equal) >= 0) h.remove();
  engine::transroll(h, nullptr, 0, nullptr);
  h.insert(sample(51));
  engine::transend(h, 1);
  h.close();
}

class EngineDamage : public ::testing::TestWithParam<bool> {
 protected:
  // A hang ends the test instead of the patience of whoever waits for it.
  void SetUp() override { alarm(110); }
  void TearDown() override { alarm(0); }
  scratch_folder folder_;
  std::string path_ = folder_.file("damaged");
  std::vector<unsigned char> image_ = image_of_all_parts(GetParam(), 300);
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, EngineDamage, ::testing::Values(false, true),
                         [](const auto& order) { return order.param ? "BigEndian" : "LittleEndian"; });

TEST_P(EngineDamage, CallsEndOnEveryFlippedBit) {
  for_each_flipped_bit(image_, 352, 16, path_, [&] { run_script(path_); });
}

TEST_P(EngineDamage, CallsEndOnEveryLength) {
  for_each_length(image_, 400, 13, path_, [&] { run_script(path_); });
}

TEST_P(EngineDamage, CallsEndOnRandomNodes) {
  for_random_pages(image_, 300, 1, 100, 200, path_, [&] { run_script(path_); });
}

}  // namespace
}  // namespace zvrdb::test
