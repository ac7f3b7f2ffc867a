// A split that was cut short: the new leaf is linked to its left neighbour, but the parent
// has no separator for it yet.
#include <gtest/gtest.h>

#include "engine/engine_handle.h"
#include "engine/format.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::entry_at::length;

// Takes the separator at the place (0 the first) out of the root of the file, which is
// the parent of the leaves.
void drop_separator(const std::string& path, int place) {
  const auto order = engine::byte_order::little;
  std::vector<unsigned char> bytes = read_file(path);
  ASSERT_EQ(engine::load32s(&bytes[engine::header_at::depth], order), 2);
  unsigned char* root = &bytes[engine::node_offset(engine::load32s(&bytes[engine::header_at::root], order))];
  unsigned char* entries = root + engine::node_head_size;
  const int count = engine::load16(root + 14, order);
  ASSERT_LT(place, count);
  int at = 0;
  for (int i = 0; i < place; i++) at += entries[at + length] + 1;
  const int size = entries[at + length] + 1;
  const int room = engine::load16(root + 16, order);
  std::memmove(entries + at, entries + at + size, static_cast<std::size_t>(engine::entry_area - at - size));
  std::memset(entries + engine::entry_area - size, 0, static_cast<std::size_t>(size));
  engine::store16(root + 14, static_cast<std::uint16_t>(count - 1), order);
  engine::store16(root + 16, static_cast<std::uint16_t>(room + size), order);
  write_file(path, bytes);
}

TEST(TornSplit, EntriesOfALeafWithoutSeparatorAreFoundChangedAndDeleted) {
  scratch_folder folder;
  const std::string path = folder.file("torn");
  constexpr int records = 60;
  for (int place = 0;; place++) {
    SCOPED_TRACE("separator " + std::to_string(place));
    std::filesystem::remove(path);
    handle h;
    ASSERT_EQ(h.create(path, 'S', 1), 0);
    for (int i = 1; i <= records; i++) ASSERT_EQ(h.insert(sample(i)), 0);
    ASSERT_EQ(h.close(), 0);
    engine::file_summary summary;
    std::string reason;
    engine::summarize_file(path.c_str(), &summary, &reason);
    if (place >= static_cast<int>(summary.leaves) - 1) break;
    drop_separator(path, place);
    ASSERT_EQ(h.open_for_work(path), 0);
    for (int i = 1; i <= records; i++) {
      ASSERT_EQ(h.find_name(sample(i).name), 0) << i;
      sample_record found;
      ASSERT_EQ(h.read(&found), 0) << i;
      ASSERT_EQ(found, sample(i));
      ASSERT_EQ(h.insert(sample(i)), engine::e_not_found) << "a second record of that name, " << i;
    }
    for (int i = records + 1; i <= records + 40; i++) ASSERT_EQ(h.insert(sample(i)), 0);
    for (int i = 1; i <= records + 40; i++) {
      ASSERT_EQ(h.find_name(sample(i).name), 0) << i;
      sample_record changed = sample(i);
      changed.number = -i;
      ASSERT_EQ(h.update(changed), 0) << i;
    }
    for (int i = 1; i <= records + 40; i++) {
      ASSERT_EQ(h.find_name(sample(i).name), 0) << i;
      ASSERT_EQ(h.remove(), 0) << i;
    }
    for (int key = 1; key <= 5; key++) ASSERT_EQ(engine::dseq(h, key, engine::seq_first), engine::e_not_found) << key;
    ASSERT_EQ(h.close(), 0);
  }
}

}  // namespace
}  // namespace zvrdb::test
