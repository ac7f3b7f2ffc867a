// Threads of one process, each with files of its own: buffers and cache are the process's.
#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "engine/engine_handle.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

constexpr int records = 150;

// Inserts, rolls back, finds, reads and deletes; the number of calls that went wrong.
int work_on(const std::string& path) {
  handle h;
  int wrong = h.create(path) != 0;
  wrong += engine::csetfile(h, 4) != 0;
  for (int i = 1; i <= records; i++) wrong += h.insert(sample(i, i % 20 == 0 ? 900 : 20)) != 0;
  wrong += engine::transbeg(h, 3, nullptr) != 0;
  for (int i = records + 1; i <= records + 20; i++) wrong += h.insert(sample(i)) != 0;
  wrong += engine::transroll(h, nullptr, 0, nullptr) != 0;
  for (int i = 1; i <= records; i++) {
    sample_record found;
    wrong += h.find_name(sample(i).name) != 0 || h.read(&found) != 0 || found.number != sample(i).number;
    if (i % 3 == 0) wrong += h.remove() != 0;
  }
  return wrong + (h.close() != 0);
}

TEST(Threads, OfOneProcessMayEachWorkOnAFile) {
  scratch_folder folder;
  std::array<int, 3> wrong{};
  std::array<std::thread, 3> threads;
  const auto path = [&](std::size_t i) { return folder.file("thread" + std::to_string(i)); };
  for (std::size_t i = 0; i < threads.size(); i++) threads[i] = std::thread([&, i] { wrong[i] = work_on(path(i)); });
  for (std::thread& thread : threads) thread.join();
  for (std::size_t i = 0; i < threads.size(); i++) {
    EXPECT_EQ(wrong[i], 0);
    check_result result = check_file(path(i), true);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
}

}  // namespace
}  // namespace zvrdb::test
