// An installation of its own for each test, one task in it, and the exported calls on
// targets in short form.  After each test the in-memory tables must hold together.
#pragma once

#include <gtest/gtest.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "memory/dbr_cntl.h"
#include "memory/dbr_tcb.h"
#include "support/temp_installation.h"
#include "targets/target_record.h"

namespace target_test {

struct Reading {
  int rc;
  Record record;
};

class TargetsTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Values of the base configuration in shared memory, as every limit test reads them.
  void configure(std::uint32_t max_targets, std::uint32_t max_local = 100, std::uint32_t max_servers = 100);
  void set_kind(unsigned kind);
  // Puts the local target and makes the installation one of this kind; from then on
  // local_dsu is the ren of the local target.
  void with_local_target(unsigned kind, const char* ren);

  int put(Record record) { return put(record, record_len); }
  int put(const Record& record, std::size_t length);
  int put_as(const std::string& key, Record record);
  Reading get(const std::string& name, std::size_t length = record_len);
  int del(const std::string& name);
  int index_rc(const std::string& name, std::uint32_t* number = nullptr);
  std::uint32_t number(const std::string& name);
  std::string server_of(const std::string& name);
  std::vector<std::string> names();  // by db_start_list and db_get_next

  // Marks that a writer died: the next call builds the tables anew from the file.
  int rebuild();
  // Ends this task and starts another.
  void new_task();
  // Runs the body in a child process with a task of its own: its result, or the signal
  // that killed it as a negative number.
  int in_child(const std::function<int(void* task)>& body);
  // A child process runs the body and is killed right behind it, its task still open.
  void kill_writer_after(const std::function<void(void* task)>& body);

  zvrdb::DBR_CNTL* cntl();
  zvrdb::DBR_TCB* tcb();
  zvrdb::TRG_CNTL_ENTRY* slot(const std::string& name);
  // How often this message stands in the log.
  int logged(unsigned number);
  // The last line of the log with this message; empty when there is none.
  std::string last_logged(unsigned number);
  void expect_sound();

  std::unique_ptr<zvrdb::test::TempInstallation> installation_;
  void* task = nullptr;
};

}  // namespace target_test
