#include "cmstatus/cms_fixture.h"

#include <cstring>

#include "memory/shared_tables.h"
#include "recfile/recfile.h"

namespace cms_test {

using namespace zvrdb;

namespace {

constexpr std::size_t cat_len = 2464, cf_flags_offset = 360, config_authorize = 4276;

struct Key {
  std::uint32_t kind, number, recnum;
};

DBR_TCB* tcb_of(void* task) {
  return static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb);
}

template <class Number>
Number number_at(const Body& body, std::size_t offset) {
  Number number;
  std::memcpy(&number, body.data() + offset, sizeof number);
  return number;
}

// Body of the record that the engine stands on.
std::optional<Body> read_here(void* task) {
  Body image(6000000);
  auto length = static_cast<std::uint32_t>(image.size());
  const int rc = recfile::db_read(task, tcb_of(task)->cms_file, image.data(), &length);
  EXPECT_EQ(rc, DBE_OK);
  if (rc != DBE_OK) return std::nullopt;
  return Body(image.begin() + 12, image.begin() + length);
}

void take_target(std::uint32_t number, const Body& body, StoredPairs* pairs) {
  if (body.size() % 38 != 0) pairs->sound = false;
  for (std::size_t at = 0; at + 38 <= body.size(); at += 38) {
    const auto file = number_at<std::uint16_t>(body, at);
    if (file == 65535) continue;
    if (!pairs->by_target.emplace(Pair{number, file}, body[at + 2]).second) pairs->sound = false;
  }
}

void take_file(std::uint32_t number, const Body& body, StoredPairs* pairs) {
  if (body.size() % 4 != 0 || body.empty()) pairs->sound = false;
  for (std::size_t at = 0; at + 4 <= body.size(); at += 4) {
    const auto entry = number_at<std::uint32_t>(body, at);
    const Pair pair{entry >> 8, static_cast<std::uint16_t>(number)};
    if (!pairs->by_file.emplace(pair, entry & 0xFF).second) pairs->sound = false;
  }
}

}  // namespace

CfName cf(std::string_view dotted) {
  CfName name{};
  std::fill_n(name.begin(), 11, 255);
  std::size_t token = 0, at = 0;
  while (token < 11) {
    const std::size_t dot = dotted.find('.');
    const std::string_view text = dotted.substr(0, dot);
    if (at + text.size() >= 65) break;
    name[token++] = static_cast<unsigned char>(at);
    std::memcpy(name.data() + 11 + at, text.data(), text.size());
    at += text.size() + 1;
    if (dot == std::string_view::npos) break;
    dotted.remove_prefix(dot + 1);
  }
  return name;
}

int put_status(void* task, const std::string& target, const CfName& name, unsigned status,
               std::string_view details) {
  std::array<unsigned char, status_len> record{};
  record[140] = static_cast<unsigned char>(status);
  std::memcpy(record.data() + 144, details.data(), std::min<std::size_t>(details.size(), 32));
  const void* keys[] = {target.c_str(), name.data()};
  return db_put(task, DB_CMS, 2, keys, record.data(), status_len);
}

StatusRecord get_status(void* task, const std::string& target, const CfName& name, std::size_t length) {
  StatusRecord record{};
  const void* keys[] = {target.c_str(), name.data()};
  record.rc = db_get(task, DB_CMS, 2, keys, record.bytes.data(), static_cast<std::uint16_t>(length));
  return record;
}

int del_status(void* task, const std::string& target, const CfName& name) {
  const void* keys[] = {target.c_str(), name.data()};
  return db_del(task, DB_CMS, 2, keys);
}

std::optional<Body> stored(void* task, std::uint32_t kind, std::uint32_t number) {
  Key key{kind, number, 0};
  const int rc = recfile::db_locate(task, tcb_of(task)->cms_file, &key, recfile::KEY_EQ);
  if (rc == DBE_NOT_FOUND) return std::nullopt;
  EXPECT_EQ(rc, DBE_OK);
  return read_here(task);
}

StoredPairs stored_pairs(void* task) {
  StoredPairs pairs;
  std::uint32_t ignored = 0;
  db_get_trg_index(task, "", &ignored);  // a first call opens the files
  Key key{};
  std::int16_t option = recfile::KEY_FIRST;
  while (recfile::db_locate(task, tcb_of(task)->cms_file, &key, option) == DBE_OK) {
    const auto body = read_here(task);
    if (!body || (key.kind != target_record && key.kind != file_record)) {
      pairs.sound = false;
      return pairs;
    }
    if (key.kind == target_record)
      take_target(key.number, *body, &pairs);
    else
      take_file(key.number, *body, &pairs);
    option = recfile::KEY_GT;
  }
  return pairs;
}

void CmStatusTest::SetUp() {
  TargetsTest::SetUp();
  configure(100);
}

void CmStatusTest::TearDown() {
  TargetsTest::TearDown();
}

void CmStatusTest::drop_work_area() {
  zvrdb::DBR_TCB* own = tcb();
  if (own->image) co_free_int(task, own->image, "test");
  own->image = nullptr;
  own->image_len = 0;
}

int CmStatusTest::put_target(const std::string& name, unsigned type) {
  return put(Record(name).type(type));
}

int CmStatusTest::put_file(const CfName& name, unsigned cf_flags) {
  std::vector<unsigned char> record(cat_len);
  std::copy(name.begin(), name.end(), record.begin());
  record[cf_flags_offset] = static_cast<unsigned char>(cf_flags);
  const void* keys[] = {name.data()};
  return db_put(task, DB_CAT, 1, keys, record.data(), cat_len);
}

int CmStatusTest::del_file(const CfName& name) {
  const void* keys[] = {name.data()};
  return db_del(task, DB_CAT, 1, keys);
}

std::uint16_t CmStatusTest::file_number(const CfName& name) {
  std::uint16_t number = 65535;
  EXPECT_EQ(memory::get_cat_num(task, &number, name.data()), DBE_OK);
  return number;
}

void CmStatusTest::authorize(unsigned mode) {
  static_cast<unsigned char*>(co_croca(task, CO_AREA_CONFIG))[config_authorize] =
      static_cast<unsigned char>(mode);
}

CmStatusTest::FileList CmStatusTest::by_file(const CfName& name, std::uint32_t length) {
  FileList list{0, std::vector<unsigned char>(length, 0xEE)};
  list.rc = db_cm_by_cat(task, name.data(), list.list.data(), length);
  return list;
}

unsigned CmStatusTest::by_file(const CfName& name, const std::string& target) {
  const FileList list = by_file(name);
  EXPECT_EQ(list.rc, DBE_OK);
  return list.list[number(target)];
}

CmStatusTest::TargetList CmStatusTest::by_target(const std::string& target, std::uint32_t length) {
  TargetList list{0, 999, std::vector<std::uint32_t>(length / 4 + 1, 0xEEEEEEEE)};
  list.rc = db_cm_by_trg(task, target.c_str(), list.entries.data(), length, &list.count);
  list.entries.resize(std::min<std::size_t>(list.count, list.entries.size()));
  return list;
}

std::optional<Body> CmStatusTest::stored_of_target(const std::string& target) {
  return stored(task, target_record, number(target));
}
std::optional<Body> CmStatusTest::stored_of_file(const CfName& name) {
  return stored(task, file_record, file_number(name));
}

void CmStatusTest::store(std::uint32_t kind, std::uint32_t of, const Body& body) {
  Body image(12);
  image.insert(image.end(), body.begin(), body.end());
  const auto length = static_cast<std::uint32_t>(image.size());
  Key key{kind, of, 0};
  if (recfile::db_update(task, tcb()->cms_file, &key, image.data(), length) == DBE_OK) return;
  ASSERT_EQ(recfile::db_write(task, tcb()->cms_file, &key, image.data(), length), DBE_OK);
}

void CmStatusTest::expect_sides_agree() {
  const StoredPairs pairs = stored_pairs(task);
  EXPECT_TRUE(pairs.sound);
  EXPECT_EQ(pairs.by_target, pairs.by_file);
}

}  // namespace cms_test
