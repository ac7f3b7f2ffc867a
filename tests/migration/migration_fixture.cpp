#include "migration/migration_fixture.h"

#include <algorithm>
#include <cstring>

#include "frame/entry.h"
#include "keyed/keyed.h"
#include "recfile/file_table.h"
#include "recfile/recfile.h"

namespace migration_test {

std::uint16_t stored_record::u16(std::size_t at) const {
  std::uint16_t value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}
std::uint32_t stored_record::u32(std::size_t at) const {
  std::uint32_t value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}
std::string stored_record::text(std::size_t at, std::size_t width) const {
  const char* begin = reinterpret_cast<const char*>(bytes.data()) + at;
  return {begin, strnlen(begin, width)};
}

bool heard::noted(const std::string& part) const {
  return std::any_of(notes.begin(), notes.end(),
                     [&](const std::string& note) { return note.find(part) != std::string::npos; });
}

db_mig_watcher watcher() {
  return [](void* context, const db_mig_event* event) {
    auto* what = static_cast<heard*>(context);
    const std::string stage = std::to_string(event->stage) + " ";
    if (event->kind == DB_MIG_BEGIN) what->begins.push_back(stage + event->text);
    if (event->kind == DB_MIG_PROGRESS) ++what->progress;
    if (event->kind == DB_MIG_NOTE) {
      what->notes.emplace_back(event->text);
      if (event->rc != 0) what->messages.push_back(static_cast<std::uint32_t>(event->rc));
    }
    if (event->kind == DB_MIG_COUNT) what->counts[stage + event->text] = event->done;
    if (event->kind == DB_MIG_END) what->ends.push_back(event->rc);
  };
}

MigrationTest::MigrationTest(const zvrdb::test::ConfigChoices& choices)
    : installation_(std::make_unique<zvrdb::test::TempInstallation>(zvrdb::test::default_config(choices))),
      db_(installation_->base()),
      task(co_init_task("migrate", nullptr, 1)) {
  db_.lay_out();
}

MigrationTest::~MigrationTest() {
  coi_term_task(task, 0);
}

void MigrationTest::SetUp() {
  ASSERT_NE(nullptr, task) << co_init_error();
}

void MigrationTest::new_task() {
  coi_term_task(task, 0);
  task = co_init_task("migrate", nullptr, 1);
  ASSERT_NE(nullptr, task) << co_init_error();
}

stored_record MigrationTest::get(std::uint32_t db_id, const std::string& name, std::uint16_t length) {
  char key[65] = {};
  name.copy(key, 64);
  const void* keys[] = {key};
  stored_record record = {0, std::vector<unsigned char>(length)};
  record.rc = db_get(task, db_id, 1, keys, record.bytes.data(), length);
  return record;
}

stored_record MigrationTest::change_file(const std::string& dotted) {
  const zvrtest::CfName name = zvrtest::cf(dotted);
  const void* keys[] = {name.data()};
  stored_record record = {0, std::vector<unsigned char>(2464)};
  record.rc = db_get(task, DB_CAT, 1, keys, record.bytes.data(), 2464);
  return record;
}

int MigrationTest::framed(const std::function<int()>& body) {
  using namespace zvrdb::frame;
  std::int16_t rc = dbr_in(task, operation::read, DB_TRG);
  const int result = rc == DBE_OK ? body() : rc;
  dbr_out(task, operation::read, DB_TRG, rc);
  return result;
}

std::vector<unsigned char> MigrationTest::status_body(std::uint32_t kind, std::uint32_t number) {
  std::vector<unsigned char> image(200000);
  std::uint32_t length = static_cast<std::uint32_t>(image.size());
  const int rc = framed([&]() -> int {
    std::uint32_t key[3] = {kind, number, 0};
    const std::int16_t found =
        zvrdb::recfile::db_locate(task, tcb()->cms_file, key, zvrdb::recfile::KEY_EQ);
    return found == DBE_OK ? zvrdb::recfile::db_read(task, tcb()->cms_file, image.data(), &length) : found;
  });
  if (rc != DBE_OK) return {};
  return {image.begin() + 12, image.begin() + length};
}

stored_record MigrationTest::keyed(std::uint32_t db_id, const std::string& key, std::uint16_t length) {
  stored_record record = {0, std::vector<unsigned char>(length)};
  unsigned char bytes[72] = {};
  std::memcpy(bytes, &db_id, sizeof db_id);
  key.copy(reinterpret_cast<char*>(bytes) + 4, 64);
  const std::uint32_t of_file = db_id == DB_TAK || db_id == DB_DAK ? static_cast<std::uint32_t>(DB_APR) : db_id;
  record.rc = framed([&]() -> int {
    zvrdb::file_entry* handle = *zvrdb::recfile::handle_field(tcb(), of_file);
    return zvrdb::keyed::get_keyed(task, db_id, handle, bytes, record.bytes.data(), length);
  });
  return record;
}

std::uint32_t MigrationTest::number(const std::string& target) {
  std::uint32_t number = 0;
  const int rc = db_get_trg_index(task, target.c_str(), &number);
  EXPECT_EQ(DBE_OK, rc) << target;
  return number;
}

std::vector<std::string> MigrationTest::user_targets(const std::string& name) {
  const stored_record record = keyed(DB_USR, name, 1236);
  EXPECT_EQ(DBE_OK, record.rc) << name;
  std::vector<std::string> targets;
  for (unsigned i = 0; i < record.u16(210); ++i) targets.push_back(record.text(212 + i * 64, 64));
  return targets;
}

unsigned MigrationTest::logged(std::uint32_t number) const {
  const std::string log = installation_->read("log/messages.log");
  const std::string mark = "ZVR" + std::to_string(number);
  unsigned count = 0;
  for (std::size_t at = 0; (at = log.find(mark, at)) != std::string::npos; ++at) ++count;
  return count;
}

void MigrationTest::configure(std::uint32_t at, std::uint32_t value) {
  std::memcpy(static_cast<unsigned char*>(co_croca(task, CO_AREA_CONFIG)) + at, &value, sizeof value);
}
std::uint32_t MigrationTest::configured(std::uint32_t at) {
  std::uint32_t value;
  std::memcpy(&value, static_cast<unsigned char*>(co_croca(task, CO_AREA_CONFIG)) + at, sizeof value);
  return value;
}

}  // namespace migration_test
