// A damaged file: every call of the engine ends with a code, without a crash, a hang or
// a read out of bounds (which the address sanitizer's build shows).
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>

#include "engine/engine_handle.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

file_layout small_file(bool big) {
  file_recipe recipe;
  recipe.big_endian = big;
  recipe.key_types = sample_key_types();
  recipe.leaf_limit = 300;
  recipe.inner_limit = 90;
  recipe.free_nodes = 1;
  recipe.spare_nodes = 1;
  for (int i = 1; i <= 4; i++) add_record(&recipe, i, written_fields(big, sample(i, i == 2 ? 400 : 10)));
  add_free_number(&recipe, 9);
  add_lock(&recipe, 19, std::string(1, '\0'), 2, 3);
  recipe.transaction = log_chain{7, {{4, ""}, {1, leaf_form(big, {3, bytes32(big, 5), 40, ""})}, {5, ""}}};
  return build_file(recipe);
}

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
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, EngineDamage, ::testing::Values(false, true),
                         [](const auto& order) { return order.param ? "BigEndian" : "LittleEndian"; });

TEST_P(EngineDamage, CallsEndOnEveryFlippedBit) {
  file_layout layout = small_file(GetParam());
  std::string path = folder_.file("flipped");
  for (std::size_t byte = 0; byte < layout.bytes.size(); byte++) {
    bool dull = layout.bytes[byte] == 0 && byte > 352;
    if (dull && byte % 16 != 0) continue;
    for (int bit = 0; bit < 8; bit++) {
      if (dull && bit != static_cast<int>(byte / 16 % 8)) continue;
      std::vector<unsigned char> bytes = layout.bytes;
      bytes[byte] = static_cast<unsigned char>(bytes[byte] ^ (1U << bit));
      write_file(path, bytes);
      SCOPED_TRACE("byte " + std::to_string(byte) + " bit " + std::to_string(bit));
      run_script(path);
    }
  }
}

TEST_P(EngineDamage, CallsEndOnEveryLength) {
  file_layout layout = small_file(GetParam());
  std::string path = folder_.file("cut");
  for (std::size_t length = 0; length < layout.bytes.size(); length += length < 400 ? 1 : 13) {
    write_file(path, {layout.bytes.begin(), layout.bytes.begin() + static_cast<std::ptrdiff_t>(length)});
    run_script(path);
  }
}

TEST_P(EngineDamage, CallsEndOnRandomNodes) {
  file_layout layout = small_file(GetParam());
  std::string path = folder_.file("random");
  std::mt19937 random(99);
  for (int round = 0; round < 300; round++) {
    std::vector<unsigned char> bytes = layout.bytes;
    std::size_t first = 1024 + 1024 * (random() % (bytes.size() / 1024 - 1)) + random() % 100;
    for (std::size_t i = first; i < bytes.size() && i < first + 200; i++) bytes[i] = static_cast<unsigned char>(random());
    write_file(path, bytes);
    SCOPED_TRACE("round " + std::to_string(round));
    run_script(path);
  }
}

}  // namespace
}  // namespace zvrdb::test
