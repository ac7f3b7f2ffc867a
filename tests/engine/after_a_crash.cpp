#include "engine/after_a_crash.h"

#include <gtest/gtest.h>

#include "engine/scratch_folder.h"

namespace zvrdb::test {

void settle(handle* h) {
  const int state = engine::transstat(*h);
  if (state == engine::e_trans_interrupted) {
    ASSERT_EQ(engine::transroll(*h, nullptr, 0, nullptr), 0);
  } else if (state == engine::e_trans_empty) {
    ASSERT_EQ(engine::transend(*h, 1), 0);
  } else {
    ASSERT_EQ(state, 0);
  }
}

void expect_sound_bytes(const disk_bytes& bytes) {
  scratch_folder folder;
  write_file(folder.file("f"), bytes);
  const check_result checked = check_file(folder.file("f"), true);
  ASSERT_EQ(checked.outcome, engine::report_outcome::sound) << checked.text() << checked.reason;
}

}  // namespace zvrdb::test
