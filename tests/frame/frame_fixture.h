// A task that comes in through the exported calls.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zvrdb/zvrdb.h>

#include <cstring>
#include <fstream>
#include <string>

#include "frame/entry.h"
#include "memory/shared_tables.h"
#include "recfile/child_process.h"
#include "recfile/record_files_fixture.h"
#include "support/temp_installation.h"

namespace zvrtest {

class client_task {
 public:
  explicit client_task(const char* name) : task_(co_init_task(name, nullptr, 0)) {
    if (!task_) {
      ADD_FAILURE() << "no task: " << co_init_error();
      abort();
    }
  }
  ~client_task() {
    if (task_) coi_term_task(task_, 0);
  }
  client_task(const client_task&) = delete;
  client_task& operator=(const client_task&) = delete;
  void end() {
    coi_term_task(task_, 0);
    task_ = nullptr;
  }
  operator void*() const { return task_; }
  zvrdb::DBR_TCB* tcb() const { return zvrdb::frame::tcb_of(task_); }
  zvrdb::DBR_CNTL* cntl() const { return static_cast<zvrdb::DBR_CNTL*>(co_croca(task_, CO_AREA_DBR_CNTL)); }
  bool owns_memory() const {
    return tcb() && tcb()->sema4[1] != 0 && co_lock_sema4(task_, tcb()->sema4[1]) != 0;
  }
  bool owns_files() const {
    return tcb() && tcb()->sema4[0] != 0 && co_lock_sema4(task_, tcb()->sema4[0]) != 0;
  }
  bool inside() const { return co_slots(task_)->in_das != 0; }

 private:
  void* task_;
};

inline zvrdb::TRG_CNTL_ENTRY target_record(const char* name) {
  zvrdb::TRG_CNTL_ENTRY record = {};
  std::strncpy(record.trg_name, name, sizeof record.trg_name - 1);
  std::memcpy(record.rgn, "RGN     ", 8);
  std::memcpy(record.ren, name, strnlen(name, sizeof record.ren));
  record.trg_type = 128 | 2;
  return record;
}

inline std::int16_t put_target(void* task, const char* name) {
  zvrdb::TRG_CNTL_ENTRY record = target_record(name);
  const void* keys[] = {name};
  return db_put(task, DB_TRG, 1, keys, &record, sizeof record);
}

inline std::int16_t get_target(void* task, const char* name) {
  zvrdb::TRG_CNTL_ENTRY record;
  const void* keys[] = {name};
  return db_get(task, DB_TRG, 1, keys, &record, sizeof record);
}

// Reads past the part that stands in memory, so the record file answers.
inline std::int16_t get_target_from_file(void* task, const char* name) {
  unsigned char record[300];
  const void* keys[] = {name};
  return db_get(task, DB_TRG, 1, keys, record, sizeof record);
}

inline std::int16_t delete_target(void* task, const char* name) {
  const void* keys[] = {name};
  return db_del(task, DB_TRG, 1, keys);
}

// Segments in the shared folder of the installation.
inline unsigned segments_in(const std::string& folder) {
  unsigned count = 0;
  DIR* listing = opendir(folder.c_str());
  if (!listing) return 0;
  while (const dirent* entry = readdir(listing))
    if (std::strstr(entry->d_name, "MEM_")) ++count;
  closedir(listing);
  return count;
}

// Bytes of storage that the shared folder takes.
inline std::uint64_t bytes_in(const std::string& folder) {
  std::uint64_t bytes = 0;
  DIR* listing = opendir(folder.c_str());
  if (!listing) return 0;
  while (const dirent* entry = readdir(listing)) {
    struct stat status;
    if (stat((folder + "/" + entry->d_name).c_str(), &status) == 0 && S_ISREG(status.st_mode))
      bytes += static_cast<std::uint64_t>(status.st_blocks) * 512u;
  }
  closedir(listing);
  return bytes;
}

// Each test of the frame ends with sound tables.
class FrameTest : public ::testing::Test {
 protected:
  explicit FrameTest(const std::string& config = zvrdb::test::default_config()) : installation(config) {}
  void TearDown() override {
    client_task last("last");
    std::uint32_t number = 0;
    if (db_get_trg_index(last, "NONE SUCH", &number) != DBE_NO_TARGET) return;
    char reason[200] = {};
    EXPECT_TRUE(zvrdb::memory::tables_sound(last, reason, sizeof reason)) << reason;
  }
  zvrdb::test::TempInstallation installation;
};

}  // namespace zvrtest
