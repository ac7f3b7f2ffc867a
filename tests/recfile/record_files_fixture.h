// A task with the nine record files open, without the request frame above them.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "engine/format.h"
#include "memory/dbr_tcb.h"
#include "recfile/recfile.h"
#include "support/temp_installation.h"

namespace zvrtest {

inline constexpr std::uint16_t write_flag = zvrdb::engine::flag_set;

// A task block made by hand; "DBR_MEM" is held as long as it lives.
class file_task {
 public:
  explicit file_task(const char* name) : task_(co_init_task(name, nullptr, 0)) {
    if (!task_) {
      ADD_FAILURE() << "no task: " << co_init_error();
      abort();
    }
    tcb_ = static_cast<zvrdb::DBR_TCB*>(co_malloc(task_, sizeof(zvrdb::DBR_TCB), CO_MEM_PRIVATE, "DBR__TCB"));
    tcb_->cntl = static_cast<zvrdb::DBR_CNTL*>(co_croca(task_, CO_AREA_DBR_CNTL));
    tcb_->start_trans_id = zvrdb::no_trans_id;
    co_slots(task_)->dbr_tcb = tcb_;
    co_open_sema4(task_, "DBR_MEM", &tcb_->sema4[1], 0, 1);
    take();
  }
  ~file_task() {
    take();
    close_files();
    co_clear_sema4(task_, tcb_->sema4[1]);
    co_slots(task_)->dbr_tcb = nullptr;
    if (tcb_->piece_area) co_free_int(task_, tcb_->piece_area, "file_task");
    co_free_int(task_, tcb_, "file_task");
    coi_term_task(task_, 0);
  }
  file_task(const file_task&) = delete;
  file_task& operator=(const file_task&) = delete;

  void take() { co_req_sema4(task_, tcb_->sema4[1], 0); }
  void release() { co_clear_sema4(task_, tcb_->sema4[1]); }
  std::int16_t open() { return zvrdb::recfile::open_files(task_); }
  void close_files() {
    for (zvrdb::file_entry& entry : tcb_->files)
      while (entry.iocb) zvrdb::recfile::db_close(task_, &entry);
  }
  void* task() const { return task_; }
  zvrdb::DBR_TCB* tcb() const { return tcb_; }
  zvrdb::DBR_CNTL* cntl() const { return tcb_->cntl; }

 private:
  void* task_;
  zvrdb::DBR_TCB* tcb_;
};

// The key of a record in the file of the targets.
struct target_key {
  std::uint32_t db_id;
  std::uint32_t number;
  std::uint32_t recnum;
};
static_assert(sizeof(target_key) == 12);

// A target of 40 zero bytes.
inline std::int16_t write_target(file_task& files, std::uint32_t number) {
  target_key key = {DB_SHT, number, 0};
  const unsigned char record[40] = {};
  return zvrdb::recfile::db_write(files.task(), files.tcb()->trg_file, &key, record, sizeof record);
}

inline std::int16_t find_target(file_task& files, std::uint32_t number) {
  target_key key = {DB_SHT, number, 0};
  return zvrdb::recfile::db_locate(files.task(), files.tcb()->trg_file, &key, zvrdb::recfile::KEY_EQ);
}

inline std::vector<unsigned char> bytes_of(std::uint32_t length, unsigned seed) {
  std::vector<unsigned char> bytes(length);
  unsigned value = seed * 2654435761u + 1;
  for (unsigned char& byte : bytes) {
    value = value * 1664525u + 1013904223u;
    byte = static_cast<unsigned char>(value >> 24);
  }
  return bytes;
}

// Engine records of the file under key 1.
inline unsigned pieces_in(const zvrdb::file_entry* handle) {
  unsigned pieces = 0;
  for (int code = zvrdb::engine::dseq(handle->psp, 1, zvrdb::engine::seq_first); code == 0;
       code = zvrdb::engine::dseq(handle->psp, 1, zvrdb::engine::seq_next))
    ++pieces;
  return pieces;
}

// Lines of the message log that carry the number.
inline unsigned logged(void* task, unsigned number) {
  std::ifstream log(co_log_path(task));
  const std::string wanted = std::to_string(number);
  unsigned lines = 0;
  for (std::string line; std::getline(log, line);)
    if (line.find(wanted) != std::string::npos) ++lines;
  return lines;
}

inline std::string last_logged(void* task, unsigned number) {
  std::ifstream log(co_log_path(task));
  const std::string wanted = std::to_string(number);
  std::string last;
  for (std::string line; std::getline(log, line);)
    if (line.find(wanted) != std::string::npos) last = line;
  return last;
}

inline bool set_flag_on_disk(const std::string& path, std::uint16_t value) {
  const int fd = open(path.c_str(), O_RDWR);
  const bool written =
      fd >= 0 && pwrite(fd, &value, sizeof value, zvrdb::engine::flag_offset) == sizeof value;
  if (fd >= 0) close(fd);
  return written;
}

inline std::uint16_t flag_on_disk(const std::string& path) {
  std::uint16_t value = 0xFFFF;
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0 || pread(fd, &value, sizeof value, zvrdb::engine::flag_offset) != sizeof value) value = 0xFFFF;
  if (fd >= 0) close(fd);
  return value;
}

}  // namespace zvrtest
