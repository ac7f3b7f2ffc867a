#include "targets/targets_fixture.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iostream>

#include "memory/shared_tables.h"

namespace target_test {

using namespace zvrdb;

namespace {

constexpr std::size_t config_kind = 85, config_max_targets = 4268, config_max_local = 4284,
                      config_max_servers = 4568;

void set_u32(void* area, std::size_t offset, std::uint32_t value) {
  std::memcpy(static_cast<char*>(area) + offset, &value, sizeof value);
}

}  // namespace

void TargetsTest::SetUp() {
  installation_ = std::make_unique<zvrdb::test::TempInstallation>();
  task = co_init_task("test", nullptr, 1);
  ASSERT_NE(task, nullptr) << co_init_error();
}

void TargetsTest::TearDown() {
  if (task) {
    expect_sound();
    if (HasFailure())
      std::cout << "The log of the installation:\n" << std::ifstream(co_log_path(task)).rdbuf();
    coi_term_task(task, 0);
  }
  installation_.reset();
}

void TargetsTest::configure(std::uint32_t max_targets, std::uint32_t max_local, std::uint32_t max_servers) {
  void* area = co_croca(task, CO_AREA_CONFIG);
  set_u32(area, config_max_targets, max_targets);
  set_u32(area, config_max_local, max_local);
  set_u32(area, config_max_servers, max_servers);
}

void TargetsTest::set_kind(unsigned kind) {
  static_cast<unsigned char*>(co_croca(task, CO_AREA_CONFIG))[config_kind] = static_cast<unsigned char>(kind);
}

void TargetsTest::with_local_target(unsigned kind, const char* ren) {
  set_kind(2);
  const int rc = put(Record("LOCAL").type(local | server).ren(ren));
  ASSERT_TRUE(rc == DBE_OK || rc == DBE_RECORD_REPLACED) << rc;
  set_kind(kind);
  new_task();
  ASSERT_EQ(get("LOCAL", 148).rc, DBE_OK);
}

int TargetsTest::put(const Record& record, std::size_t length) {
  // In memory of just this length, so that a read beyond it is noticed.
  std::vector<unsigned char> exact(record.bytes.begin(), record.bytes.begin() + static_cast<long>(length));
  const std::string name = record.name();
  const void* keys[] = {name.c_str()};
  return db_put(task, DB_TRG, 1, keys, exact.data(), static_cast<std::uint16_t>(length));
}

int TargetsTest::put_as(const std::string& key, Record record) {
  const void* keys[] = {key.c_str()};
  return db_put(task, DB_TRG, 1, keys, record.bytes.data(), record_len);
}

Reading TargetsTest::get(const std::string& name, std::size_t length) {
  Reading reading{0, Record("")};
  const void* keys[] = {name.c_str()};
  reading.rc = db_get(task, DB_TRG, 1, keys, reading.record.bytes.data(), static_cast<std::uint16_t>(length));
  return reading;
}

int TargetsTest::del(const std::string& name) {
  const void* keys[] = {name.c_str()};
  return db_del(task, DB_TRG, 1, keys);
}

int TargetsTest::index_rc(const std::string& name, std::uint32_t* number) {
  std::uint32_t ignored = 0;
  return db_get_trg_index(task, name.c_str(), number ? number : &ignored);
}

std::uint32_t TargetsTest::number(const std::string& name) {
  std::uint32_t found = 0;
  EXPECT_EQ(index_rc(name, &found), DBE_OK) << name;
  return found;
}

std::string TargetsTest::server_of(const std::string& name) {
  char text[64] = {};
  EXPECT_EQ(db_get_srv(task, name.c_str(), text), DBE_OK) << name;
  return std::string(text, strnlen(text, sizeof text));
}

std::vector<std::string> TargetsTest::names() {
  std::vector<char> list(200 * 64);
  std::uint16_t count = 0, index = 0;
  EXPECT_EQ(db_start_list(task, DB_TRG, nullptr, list.data(), static_cast<std::uint32_t>(list.size()), &count,
                          &index),
            DBE_OK);
  std::vector<std::string> all;
  while (index < count) {
    Record record("");
    EXPECT_EQ(db_get_next(task, DB_TRG, list.data(), count, &index, record.bytes.data(), 64), DBE_OK);
    all.push_back(record.name());
  }
  return all;
}

int TargetsTest::rebuild() {
  cntl()->fwrite_in_prog = 1;
  const int rc = index_rc("");
  return rc == DBE_NO_TARGET ? DBE_OK : rc;
}

void TargetsTest::new_task() {
  coi_term_task(task, 0);
  task = co_init_task("test", nullptr, 1);
  ASSERT_NE(task, nullptr) << co_init_error();
}

int TargetsTest::in_child(const std::function<int(void* task)>& body) {
  const pid_t child = fork();
  if (child == 0) {
    void* own = co_init_task("child", nullptr, 1);
    if (!own) _exit(99);
    const int rc = body(own);
    coi_term_task(own, 0);
    _exit(rc >= 0 && rc < 98 ? rc : 98);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void TargetsTest::kill_writer_after(const std::function<void(void* task)>& body) {
  EXPECT_EQ(in_child([&](void* child) {
              body(child);
              raise(SIGKILL);
              return 1;
            }),
            -SIGKILL);
}

DBR_CNTL* TargetsTest::cntl() {
  return static_cast<DBR_CNTL*>(co_croca(task, CO_AREA_DBR_CNTL));
}
DBR_TCB* TargetsTest::tcb() {
  return static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb);
}

TRG_CNTL_ENTRY* TargetsTest::slot(const std::string& name) {
  const std::uint32_t found = number(name);
  return memory::trg_slot(tcb(), found);
}

int TargetsTest::logged(unsigned message) {
  std::ifstream log(co_log_path(task));
  const std::string mark = numbered("ZVR", message);
  int count = 0;
  for (std::string line; std::getline(log, line);) count += line.find(mark) != std::string::npos;
  return count;
}

std::string TargetsTest::last_logged(unsigned message) {
  std::ifstream log(co_log_path(task));
  const std::string mark = numbered("ZVR", message);
  std::string last;
  for (std::string line; std::getline(log, line);)
    if (line.find(mark) != std::string::npos) last = line;
  return last;
}

void TargetsTest::expect_sound() {
  // A call that maps the present tables; a table that cannot be built has none.
  if (index_rc("") != DBE_NO_TARGET) return;
  char reason[200] = {};
  EXPECT_TRUE(memory::tables_sound(task, reason, sizeof reason)) << reason;
}

}  // namespace target_test
