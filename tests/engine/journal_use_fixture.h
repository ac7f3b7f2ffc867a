// Two handles with a journal beside each other on a disk in memory.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "engine/engine_handle.h"
#include "engine/every_record.h"
#include "engine/memory_disk.h"

namespace zvrdb::test {

class JournalUse : public ::testing::Test {
 protected:
  static constexpr char path[] = "/disk/file";
  static constexpr char journal_of_it[] = "/disk/file.jnl";
  static constexpr std::size_t flag_at = 1010;   // the write flag in the header of the file
  static const std::uint64_t deferred_by_default;

  void SetUp() override;
  void TearDown() override;
  // The disk before anything is done: the file alone, with 30 records and room to grow.
  static disk_image image();
  // A record in a transaction of its own, flushed.
  static void put(handle* h, int i, std::size_t payload = 300);
  static bool flag_set() { return disk_now().at(path).bytes[flag_at] != 0; }
  static void expect_sound();
  // The first event from there on that flushes, or that writes the flag; the end where none does.
  static std::size_t next_flush(std::size_t from);
  static std::size_t next_flag_write(std::size_t from);
  handle a_, b_;
};

}  // namespace zvrdb::test
