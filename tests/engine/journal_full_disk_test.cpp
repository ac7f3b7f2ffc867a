// A journal and its file on a disk that fills up.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "engine/engine_handle.h"
#include "engine/os_file.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;

std::uint64_t bytes_left = 0;   // of the disk

std::int64_t write_while_it_fits(int file, std::uint64_t offset, const void* from, std::size_t n) {
  const std::int64_t size = engine::linux_ops.size(file);
  const std::uint64_t grows = offset + n > static_cast<std::uint64_t>(size) ? offset + n - static_cast<std::uint64_t>(size) : 0;
  if (grows > bytes_left) return 0;
  bytes_left -= grows;
  return engine::linux_ops.write_at(file, offset, from, n);
}

TEST(JournalFullDisk, NothingChangesAndWorkGoesOnWhenThereIsRoomAgain) {
  scratch_folder folder;
  engine::os_ops ops = engine::linux_ops;
  ops.write_at = write_while_it_fits;
  engine::set_os_ops(&ops);
  const std::string file = folder.file("full");
  file_recipe recipe = sample_recipe(false, 30, 600);
  recipe.spare_nodes = 6;
  write_file(file, build_file(recipe).bytes);
  {
    handle h;
    h.journal = journal_use::on;
    bytes_left = 0;   // no room for a journal either
    ASSERT_EQ(h.open_for_work(file), 0);
    EXPECT_EQ(h.find_name(sample(7).name), 0);
    EXPECT_EQ(engine::transstat(h), 0);
    const std::vector<unsigned char> before = read_file(file);
    EXPECT_EQ(h.insert(sample(101)), engine::e_write);
    EXPECT_EQ(read_file(file), before);
    bytes_left = 2 * 1024 * 1024;
    ASSERT_EQ(h.insert(sample(101)), 0);
    bytes_left = 0;   // room in the journal, and in the file until it must grow
    int i = 102;
    while (h.insert(sample(i, 400)) == 0) {
      ASSERT_LT(i, 200);
      i++;
    }
    EXPECT_GT(i, 102);
    EXPECT_EQ(h.find_name(sample(i).name), engine::e_not_found);
    for (int there = 101; there < i; there++) ASSERT_EQ(h.find_name(sample(there).name), 0) << there;
    bytes_left = 1024 * 1024;
    ASSERT_EQ(h.insert(sample(i, 400)), 0);
    ASSERT_EQ(h.close(), 0);
  }
  const check_result checked = check_file(file, true);
  EXPECT_EQ(checked.outcome, engine::report_outcome::sound) << checked.text();
  engine::set_os_ops(nullptr);
}

}  // namespace
}  // namespace zvrdb::test
