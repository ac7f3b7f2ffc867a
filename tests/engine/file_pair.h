// Two small record files on a disk in memory, and one handle of each.
#pragma once

#include <gtest/gtest.h>

#include "engine/after_a_crash.h"
#include "engine/engine_handle.h"
#include "engine/every_record.h"
#include "engine/memory_disk.h"
#include "engine/sample_files.h"

namespace zvrdb::test {

inline constexpr const char* pair_paths[] = {"/disk/first", "/disk/second"};

struct both_states {
  records of[2];
  bool operator==(const both_states&) const = default;
};

inline disk_image small_files() {
  file_recipe recipe = sample_recipe(false, 20, 600);
  recipe.spare_nodes = 6;
  const disk_bytes bytes = build_file(recipe).bytes;
  disk_image start;
  start[pair_paths[0]] = {bytes, 5000};
  start[pair_paths[1]] = {bytes, 6000};
  return start;
}

struct file_pair {
  handle of[2];
  file_pair() { of[0].journal = of[1].journal = engine::journal_use::on; }
  void open(int first = 0) {
    ASSERT_EQ(of[first].open_for_work(pair_paths[first]), 0);
    settle(&of[first]);
    ASSERT_EQ(of[1 - first].open_for_work(pair_paths[1 - first]), 0);
    settle(&of[1 - first]);
  }
  void close(int first = 0) {
    ASSERT_EQ(of[first].close(), 0);
    ASSERT_EQ(of[1 - first].close(), 0);
  }
  // One record more in each, one less in the second.
  int change_both(int i, std::size_t payload) {
    for (handle& h : of) {
      EXPECT_EQ(engine::transbeg(h, 3, nullptr), 0);
      EXPECT_EQ(h.insert(sample(i, payload)), 0);
    }
    if (of[1].find_name(sample(i - 100).name) == 0) {
      EXPECT_EQ(of[1].remove(), 0);
    }
    EXPECT_TRUE(engine::can_end_together(of[0], of[1]));
    return engine::transend_together(of[0], of[1], 1);
  }
  // Both changed, and in the second file a transaction begun behind that.
  void change_both_and_go_on() {
    ASSERT_EQ(change_both(101, 300), 0);
    ASSERT_EQ(engine::transbeg(of[1], 3, nullptr), 0);
  }
  int change_one(int which, int i) {
    handle& h = of[which];
    EXPECT_EQ(engine::transbeg(h, 3, nullptr), 0);
    EXPECT_EQ(h.insert(sample(i, 300)), 0);
    return engine::transend(h, 1);
  }
  both_states now() { return {{all_records(&of[0]), all_records(&of[1])}}; }
};

}  // namespace zvrdb::test
