// What the first call of a process costs the system beside a process that works already, in exact
// figures: a change that makes it dearer fails here.  One that makes it cheaper fails too, and
// brings the new figure.
#include "support/costs_of_calls.h"

#include <sys/mman.h>

#include <cstdlib>

#include "frame/frame_fixture.h"
#include "system_call_count.h"

namespace zvrdb::frame {
namespace {

using zvrtest::client_task;
using zvrtest::put_target;

struct outcome {
  int rc;
  unsigned long allocations;
};

// The memory of the C library is made ready before, so that it asks the system for none.
void make_heap_ready() {
  constexpr int room = 16 << 20;
  mallopt(M_TOP_PAD, room);
  void* grown = std::malloc(100000);
  std::free(grown);
}

class AttachCosts : public zvrtest::FrameTest {
 protected:
  void SetUp() override {
#if ZVR_SANITIZED
    GTEST_SKIP() << "the sanitizer has the allocator";
#endif
    setenv("ZVR_JOURNAL", "on", 1);
    out_ = static_cast<outcome*>(
        mmap(nullptr, sizeof(outcome), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(MAP_FAILED, static_cast<void*>(out_));
  }
  void TearDown() override {
    unsetenv("ZVR_JOURNAL");
    if (out_) munmap(out_, sizeof *out_);
    FrameTest::TearDown();
  }
  // Of the first call of a new process.
  bench::CallCounts attach() {
    void* task = nullptr;
    *out_ = {-1, 0};
    return bench::count_system_calls(
        [&] {
          make_heap_ready();
          task = co_init_task("attaches", nullptr, 0);
        },
        [&] {
#if !ZVR_SANITIZED
          const unsigned long before = allocations;
          std::uint32_t number = 0;
          out_->rc = db_get_trg_index(task, "A", &number);
          out_->allocations = allocations - before;
#endif
        });
  }
  outcome* out_ = nullptr;
};

TEST_F(AttachCosts, AreSoManyCallsAndAllocationsAndNoFlush) {
  const client_task keeper("keeper");
  ASSERT_EQ(DBE_OK, put_target(keeper, "A"));
  const bench::CallCounts first = attach();
  if (!first.known) GTEST_SKIP() << "this process may not trace its children";
  EXPECT_EQ(DBE_OK, out_->rc);
  EXPECT_EQ(321, first.calls);
  EXPECT_EQ(0, first.flushes);
  EXPECT_EQ(50u, out_->allocations);
}

}  // namespace
}  // namespace zvrdb::frame
