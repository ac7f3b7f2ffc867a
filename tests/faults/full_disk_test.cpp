// A full disk: the call that meets it is refused and has changed nothing, what is stored can
// be read and mostly deleted, who comes finds it so, and with room again all goes on.
//
// Once by a small file system of its own, where the process may mount one, and once by writes
// that go no further than so many bytes behind the ends of the files.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zvrco/zvrco.h>
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>

#include "crash/crash_installation.h"
#include "crash/stored_records.h"
#include "faults/library_faults.h"
#include "faults/text_connection.h"

namespace fault_test {
namespace {

using namespace crash_test;

constexpr std::uint32_t first_sequence = 1000;   // of the requests that fill the disk
constexpr unsigned most_requests = 100000;
constexpr unsigned patience_seconds = 100;

std::string see(void* task) {
  const std::string records = observe(task);
  return records + observe_connection(task);
}

struct operation {
  const char* name;
  step run;
};
const operation operations[] = {
    {"put of a target", [](void* t) { return put_target(t, "NEW", "new"); }},
    {"put of four pieces", [](void* t) { return put_shadow(t, "T1", 1000, 1); }},
    {"replacement of four pieces", [](void* t) { return put_shadow(t, "T2", 990, 2); }},
    {"put of a pair", [](void* t) { return put_status(t, "T2", "APP.TWO.REF.1", 4); }},
    {"put of a change file", [](void* t) { return put_change_file(t, "APP.THREE.REF.1"); }},
    {"put of a text", [](void* t) { return put_connection(t, 2); }},
    {"put of a request", [](void* t) { return put_request_root(t, 3); }},
    {"transaction", [](void* t) {
       bool good = db_start_trans(t, DB_TRG) == DBE_OK;
       for (unsigned i = 0; i < 40; ++i) good = good && put_shadow(t, i % 2 ? "T1" : "T2", 1000, i);
       return good && db_commit(t, DB_TRG) == DBE_OK;
     }},
    {"deletion of a pair", [](void* t) { return del_status(t, "T1", "APP.ONE.REF.1"); }},
    {"deletion of four pieces", [](void* t) { return del_shadow(t, "T2"); }},
    {"deletion of a request", [](void* t) { return del_request(t, 1); }},
    {"deletion of a target", [](void* t) { return del_target(t, "T1"); }},
};

bool put_base(void* t) {
  for (const char* name : {"LOCAL", "SRC", "SRV", "T1", "T2"})
    if (!put_target(t, name, "of the start")) return false;
  return put_parameters(t, "T1", 20, 1) && put_shadow(t, "T2", 1000, 1) && put_change_file(t, "APP.ONE.REF.1") &&
         put_change_file(t, "APP.TWO.REF.1") && put_status(t, "T1", "APP.ONE.REF.1", 1) && put_request(t, 1) &&
         put_connection(t, 1);
}

// How a disk is made small and large again.
struct disk {
  std::function<bool()> fill;   // leaves some room
  std::function<bool()> make_room;
};

class FullDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    alarm(patience_seconds);
    co_test_delay_factor(1, 1000);
    std::filesystem::create_directory(place_.base() + "/db/snadscon");
  }
  void TearDown() override {
    make_room();
    co_test_delay_factor(1, 1);
    alarm(0);
  }
  // Requests until one is refused; how many were stored.
  static unsigned store_until_full(void* task) {
    unsigned stored = 0;
    while (stored < most_requests && put_request_root(task, first_sequence + stored)) ++stored;
    EXPECT_LT(stored, most_requests);
    EXPECT_EQ(last_refusal(), DBE_IO_ERROR);
    return stored;
  }
  static unsigned requests_stored(void* task) {
    unsigned found = 0;
    while (has_request_root(task, first_sequence + found)) ++found;
    return found;
  }
  // Done, or refused and then as if it had not been asked for.
  void try_operation(void* task, const operation& what) {
    SCOPED_TRACE(what.name);
    const std::string before = see(task);
    if (what.run(task)) {
      ++done_;
      return;
    }
    ++refused_;
    const std::int16_t code = last_refusal();
    EXPECT_TRUE(code == DBE_IO_ERROR || code == CO_IO_ERROR || code == DBE_NOT_FOUND || code == DBE_NO_TARGET) << code;
    EXPECT_EQ(db_rollback(task, DB_TRG), DBE_OK);
    EXPECT_EQ(see(task), before);
  }
  void fill_and_make_room(const disk& small) {
    void* task = co_init_task("fills", nullptr, 0);
    ASSERT_NE(task, nullptr) << co_init_error();
    ASSERT_TRUE(put_base(task));
    const std::string base = see(task);
    ASSERT_TRUE(small.fill());
    const unsigned stored = store_until_full(task);
    ASSERT_GT(stored, 50u);
    EXPECT_FALSE(has_request_root(task, first_sequence + stored));
    EXPECT_EQ(requests_stored(task), stored);
    EXPECT_EQ(place_.faults(), "");
    for (const operation& what : operations) try_operation(task, what);
    EXPECT_EQ(requests_stored(task), stored);
    EXPECT_EQ(place_.faults(), "");
    const std::string full = see(task);
    // Who comes while it is full, beside that one and alone.
    void* beside = co_init_task("beside", nullptr, 0);
    ASSERT_NE(beside, nullptr) << co_init_error();
    EXPECT_EQ(see(beside), full);
    coi_term_task(task, 0);
    EXPECT_EQ(see(beside), full);
    coi_term_task(beside, 0);
    task = co_init_task("alone", nullptr, 0);
    ASSERT_NE(task, nullptr) << co_init_error();
    EXPECT_EQ(see(task), full);
    EXPECT_EQ(requests_stored(task), stored);
    ASSERT_TRUE(small.make_room());
    EXPECT_TRUE(put_request_root(task, first_sequence + stored));
    EXPECT_EQ(requests_stored(task), stored + 1);
    EXPECT_TRUE(put_base(task));
    EXPECT_TRUE(work_on(task));
    coi_term_task(task, 0);
    EXPECT_EQ(place_.faults(), "");
    task = co_init_task("last", nullptr, 0);
    EXPECT_EQ(requests_stored(task), stored + 1);
    coi_term_task(task, 0);
    EXPECT_EQ(strange_answers(), "");
    EXPECT_GT(refused_, 0u);
    std::cout << stored << " records filled it; then " << done_ << " operations were done and " << refused_
              << " refused" << std::endl;
  }

  installation place_;
  unsigned done_ = 0, refused_ = 0;
};

TEST_F(FullDisk, RefusesAndChangesNothingAndGoesOnWithRoom) {
  const disk small = {[] {
                        fill_disk(600 * 1024);
                        return true;
                      },
                      [] {
                        make_room();
                        return true;
                      }};
  fill_and_make_room(small);
}

// A file system of 12 MiB, for the folder of the files and for this process alone.
class SmallFileSystem {
 public:
  explicit SmallFileSystem(std::string folder) : folder_(std::move(folder)) {}
  // False: it may not be done here.
  bool mount_it() {
    if (unshare(CLONE_NEWNS) != 0) return false;
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
    return mount("zvr", folder_.c_str(), "tmpfs", 0, "size=12m") == 0;
  }
  bool make_room() const { return mount("zvr", folder_.c_str(), "tmpfs", MS_REMOUNT, "size=64m") == 0; }
  void unmount_it() const { umount2(folder_.c_str(), MNT_DETACH); }

 private:
  std::string folder_;
};

TEST_F(FullDisk, SoItIsOnASmallFileSystem) {
  constexpr int not_permitted = 77;
  const std::string folder = place_.base() + "/db";
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    SmallFileSystem small(folder);
    if (!small.mount_it()) _exit(not_permitted);
    std::filesystem::create_directory(folder + "/snadscon");
    fill_and_make_room({[] { return true; }, [&small] { return small.make_room(); }});
    small.unmount_it();
    std::cout.flush();
    _exit(HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == not_permitted) GTEST_SKIP() << "this process may mount nothing";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

// Each operation with ever more room, until it is done.
TEST_F(FullDisk, AnyRoomThatIsTooLittleIsRefusedWhole) {
  const bool torture = std::getenv("ZVR_TORTURE") != nullptr;
  const auto more = [torture](std::uint64_t room) {
    if (!torture) return room + room / 2 + 3000;
    return room + (room < 64 * 1024 ? 512 : 24 * 1024);
  };
  void* task = co_init_task("base", nullptr, 0);
  ASSERT_TRUE(put_base(task));
  coi_term_task(task, 0);
  place_.forget_shared_state();
  place_.keep_this();
  unsigned points = 0;
  for (const operation& what : operations) {
    SCOPED_TRACE(what.name);
    bool done = false;
    for (std::uint64_t room = 0; !done; room = more(room), ++points) {
      alarm(patience_seconds);
      SCOPED_TRACE("room for " + std::to_string(room) + " bytes");
      place_.put_back();
      std::filesystem::create_directory(place_.base() + "/db/snadscon");
      task = co_init_task("tries", nullptr, 0);
      ASSERT_NE(task, nullptr) << co_init_error();
      ASSERT_FALSE(see(task).empty());   // the files are open, and the tables are there
      ASSERT_TRUE(put_connection(task, 1));
      const std::string before = see(task);
      fill_disk(room);
      done = what.run(task);
      const std::int16_t code = last_refusal();
      if (!done) {
        EXPECT_TRUE(code == DBE_IO_ERROR || code == CO_IO_ERROR) << code;
        const std::int16_t undone = db_rollback(task, DB_TRG);
        EXPECT_TRUE(undone == DBE_OK || undone == DBE_IO_ERROR || undone == DBE_INIT_FAILED) << undone;
      }
      make_room();
      EXPECT_EQ(db_rollback(task, DB_TRG), DBE_OK);
      const std::string behind = see(task);
      EXPECT_EQ(behind == before, !done);
      EXPECT_TRUE(done || what.run(task)) << last_refusal();
      const std::string after = see(task);
      coi_term_task(task, 0);
      EXPECT_EQ(place_.faults(), "");
      task = co_init_task("looks", nullptr, 0);
      EXPECT_EQ(see(task), after);
      coi_term_task(task, 0);
      if (HasFailure()) return;
    }
  }
  EXPECT_EQ(strange_answers(), "");
  std::cout << points << " points" << std::endl;
}

// The first task of all, with ever more room.
TEST_F(FullDisk, AnInstallationThatFindsNoRoomForItsFilesMakesThemLater) {
  const std::uint64_t step_of_room = std::getenv("ZVR_TORTURE") ? 64 * 1024 : 1024 * 1024 + 77;
  unsigned points = 0;
  bool done = false;
  for (std::uint64_t room = 0; !done; room += step_of_room, ++points) {
    SCOPED_TRACE("room for " + std::to_string(room) + " bytes");
    place_.put_back();
    fill_disk(room);
    void* task = co_init_task("first", nullptr, 0);
    ASSERT_NE(task, nullptr) << co_init_error();
    done = put_target(task, "T1", "the first");
    if (!done) {
      EXPECT_EQ(last_refusal(), DBE_IO_ERROR);
    }
    make_room();
    EXPECT_TRUE(done || put_target(task, "T1", "the first")) << last_refusal();
    EXPECT_TRUE(work_a_little(task));
    coi_term_task(task, 0);
    EXPECT_EQ(place_.faults(), "");
    if (HasFailure()) return;
  }
  EXPECT_EQ(strange_answers(), "");
  std::cout << points << " points" << std::endl;
}

}  // namespace
}  // namespace fault_test
