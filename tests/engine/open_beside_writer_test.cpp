// A handle that is being opened while another one writes.
#include <gtest/gtest.h>

#include <functional>

#include "engine/engine_handle.h"
#include "engine/os_file.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

constexpr std::uint64_t first_reader_byte = 562;
constexpr std::uint64_t reader_byte_count = 209;

// What happens before the nth reader byte from now on is locked.
int locks_until_then = 0;
std::function<void()> happens;

engine::lock_answer lock_with_event(int file, std::uint64_t offset, std::uint64_t length) {
  const bool reader = length == 1 && offset >= first_reader_byte && offset < first_reader_byte + reader_byte_count;
  if (reader && locks_until_then > 0 && --locks_until_then == 0) happens();
  return engine::linux_ops.lock(file, offset, length);
}

class OpenBesideWriter : public ::testing::Test {
 protected:
  void SetUp() override {
    table_ = engine::linux_ops;
    table_.lock = lock_with_event;
    engine::set_os_ops(&table_);
  }
  void TearDown() override {
    locks_until_then = 0;
    happens = nullptr;
    engine::set_os_ops(nullptr);
  }
  engine::os_ops table_;
};

TEST_F(OpenBesideWriter, AReaderSeesWhatWasWrittenWhileItLookedForASlot) {
  scratch_folder folder;
  const std::string path = folder.file("shared");
  for (int moment = 1; moment <= 3; moment++) {
    SCOPED_TRACE("before lock " + std::to_string(moment));
    std::filesystem::remove(path);
    handle writer;
    ASSERT_EQ(writer.create(path), 0);
    ASSERT_EQ(engine::csetfile(writer, 4), 0);
    for (int i = 1; i <= 3; i++) ASSERT_EQ(writer.insert(sample(i * 10)), 0);
    happens = [&] {
      for (int i : {1, 2, 3, 4, 6, 7, 8, 9}) EXPECT_EQ(writer.insert(sample(i)), 0);
    };
    locks_until_then = moment;
    handle reader;
    ASSERT_EQ(reader.open(path, 'S', 1), 0);
    locks_until_then = 0;
    if (writer.find_name(sample(1).name) != 0) continue;   // it never came to that lock
    for (int i : {1, 2, 3, 4, 6, 7, 8, 9, 10, 20, 30}) {
      ASSERT_EQ(reader.find_name(sample(i).name), 0) << i;
      sample_record found;
      ASSERT_EQ(reader.read(&found), 0) << i;
      EXPECT_EQ(found, sample(i));
    }
  }
}

}  // namespace
}  // namespace zvrdb::test
