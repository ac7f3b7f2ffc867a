#include "engine/journal_use_fixture.h"

#include <unistd.h>

#include "engine/after_a_crash.h"
#include "engine/journal.h"

namespace zvrdb::test {

const std::uint64_t JournalUse::deferred_by_default = engine::defer_to;

void JournalUse::SetUp() {
  alarm(300);
  mount_memory_disk(image());
  a_.journal = b_.journal = engine::journal_use::on;
}

void JournalUse::TearDown() {
  for (handle* h : {&a_, &b_}) {
    if (engine::checkpsp(*h) != 'O') continue;
    EXPECT_EQ(h->close(), 0);
  }
  EXPECT_EQ(disk_open_files(), 0);
  unmount_memory_disk();
  engine::checkpoint_at = engine::journal_size;
  engine::defer_to = deferred_by_default;
  alarm(0);
}

disk_image JournalUse::image() {
  file_recipe recipe = sample_recipe(false, 30, 600);
  recipe.spare_nodes = 6;
  disk_image start;
  start[path] = {build_file(recipe).bytes, 5000};
  return start;
}

void JournalUse::put(handle* h, int i, std::size_t payload) {
  ASSERT_EQ(engine::transbeg(*h, 3, nullptr), 0);
  ASSERT_EQ(h->insert(sample(i, payload)), 0);
  ASSERT_EQ(engine::transend(*h, 1), 0);
  ASSERT_EQ(engine::dflush(*h), 0);
}

std::size_t JournalUse::next_flush(std::size_t from) {
  while (from < disk_events().size() && disk_events()[from].what != disk_event::kind::flush) from++;
  return from;
}

std::size_t JournalUse::next_flag_write(std::size_t from) {
  while (from < disk_events().size() && disk_events()[from].offset != flag_at) from++;
  return from;
}

void JournalUse::expect_sound() { expect_sound_bytes(disk_now().at(path).bytes); }

}  // namespace zvrdb::test
