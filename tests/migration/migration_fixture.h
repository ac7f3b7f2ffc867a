// An installation with an older database in it, and a task.
#pragma once

#include <gtest/gtest.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "memory/dbr_tcb.h"
#include "migration/older_database.h"
#include "support/cf_names.h"
#include "support/temp_installation.h"

namespace migration_test {

// A record as the generic calls give it.
struct stored_record {
  int rc;
  std::vector<unsigned char> bytes;
  unsigned byte(std::size_t at) const { return bytes[at]; }
  std::uint16_t u16(std::size_t at) const;
  std::uint32_t u32(std::size_t at) const;
  std::string text(std::size_t at, std::size_t width) const;
};

// What a watcher heard.
struct heard {
  std::map<std::string, std::uint32_t> counts;  // "stage kind"
  std::vector<std::string> notes;
  std::vector<std::string> begins;  // "stage text"
  std::vector<int> ends;
  std::vector<std::uint32_t> messages;
  std::uint32_t progress = 0;
  bool noted(const std::string& part) const;
};
db_mig_watcher watcher();  // its context is a heard

class MigrationTest : public ::testing::Test {
 protected:
  explicit MigrationTest(const zvrdb::test::ConfigChoices& choices = {});
  ~MigrationTest() override;
  void SetUp() override;

  int migrate() { return db_mig_das(task); }
  int migrate(heard* what, std::uint32_t options = 0) { return db_mig_watched(task, options, watcher(), what); }
  // Ends the task and starts another.
  void new_task();

  stored_record get(std::uint32_t db_id, const std::string& name, std::uint16_t length);
  stored_record target(const std::string& name) { return get(DB_TRG, name, 21724); }
  stored_record user(const std::string& name) { return keyed(DB_USR, name, 1236); }
  stored_record change_file(const std::string& dotted);
  // Bodies of the records of "cmstatus": kind 1 by target number, 2 by change file number.
  // Empty also when there is none.
  std::vector<unsigned char> status_body(std::uint32_t kind, std::uint32_t number);
  // A record by its key as it stands, in the caller's form.
  stored_record keyed(std::uint32_t db_id, const std::string& key, std::uint16_t length);
  std::uint32_t number(const std::string& target);
  std::vector<std::string> user_targets(const std::string& name);
  unsigned logged(std::uint32_t number) const;
  void configure(std::uint32_t at, std::uint32_t value);
  std::uint32_t configured(std::uint32_t at);
  zvrdb::DBR_TCB* tcb() { return static_cast<zvrdb::DBR_TCB*>(co_slots(task)->dbr_tcb); }
  // Runs the body inside a call, so that the files are open.
  int framed(const std::function<int()>& body);

  std::unique_ptr<zvrdb::test::TempInstallation> installation_;
  older_database db_;
  void* task = nullptr;
};

}  // namespace migration_test
