// Two small record files on a disk in memory, and one handle of each.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "engine/engine_handle.h"
#include "engine/memory_disk.h"
#include "engine/sample_files.h"

namespace zvrdb::test {

inline constexpr const char* pair_paths[] = {"/disk/first", "/disk/second"};

using file_records = std::map<std::string, sample_record>;

struct both_states {
  file_records of[2];
  bool operator==(const both_states&) const = default;
};

inline file_records all_records(handle* h) {
  file_records result;
  for (int found = engine::dseq(*h, 1, engine::seq_first); found == 0; found = engine::dseq(*h, 1, engine::seq_next)) {
    sample_record r;
    EXPECT_EQ(h->read(&r), 0);
    result[r.name] = r;
  }
  return result;
}

inline disk_image small_files() {
  file_recipe recipe = sample_recipe(false, 20, 600);
  recipe.spare_nodes = 6;
  const disk_bytes bytes = build_file(recipe).bytes;
  disk_image start;
  start[pair_paths[0]] = {bytes, 5000};
  start[pair_paths[1]] = {bytes, 6000};
  return start;
}

inline void settle(handle* h) {
  const int state = engine::transstat(*h);
  if (state == engine::e_trans_interrupted) {
    ASSERT_EQ(engine::transroll(*h, nullptr, 0, nullptr), 0);
  } else if (state == engine::e_trans_empty) {
    ASSERT_EQ(engine::transend(*h, 1), 0);
  } else {
    ASSERT_EQ(state, 0);
  }
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
  int change_one(int which, int i) {
    handle& h = of[which];
    EXPECT_EQ(engine::transbeg(h, 3, nullptr), 0);
    EXPECT_EQ(h.insert(sample(i, 300)), 0);
    return engine::transend(h, 1);
  }
  both_states now() { return {{all_records(&of[0]), all_records(&of[1])}}; }
};

}  // namespace zvrdb::test
