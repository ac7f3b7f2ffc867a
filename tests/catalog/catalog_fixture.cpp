#include "catalog/catalog_fixture.h"

#include <algorithm>
#include <cstring>

#include "catalog/catalog.h"
#include "catalog/catalog_key.h"
#include "frame/entry.h"
#include "keyed/keyed.h"
#include "memory/cf_name.h"
#include "recfile/recfile.h"

namespace catalog_test {

using namespace zvrdb;

namespace {

constexpr std::size_t text_at = 102, text_width = 244;

std::string dotted(const unsigned char* name) {
  std::string text;
  for (std::uint32_t i = 0; i < memory::cf_token_count; ++i) {
    const memory::cf_token token = memory::token_of(name, i);
    if (!token.present) break;
    if (i > 0) text += '.';
    text.append(token.text, token.length);
  }
  return text;
}

}  // namespace

CatRecord::CatRecord(const CfName& name) : bytes(record_len) {
  std::memcpy(bytes.data(), name.data(), name.size());
}

CfName CatRecord::name() const {
  CfName name;
  std::memcpy(name.data(), bytes.data(), name.size());
  return name;
}

CatRecord& CatRecord::text(const std::string& value) {
  std::memset(bytes.data() + text_at, 0, text_width);
  std::memcpy(bytes.data() + text_at, value.data(), std::min(value.size(), text_width - 1));
  return *this;
}

std::string CatRecord::text() const {
  const char* at = reinterpret_cast<const char*>(bytes.data() + text_at);
  return std::string(at, strnlen(at, text_width));
}

CatRecord& CatRecord::last_byte(unsigned value) {
  bytes[2462] = static_cast<unsigned char>(value);
  return *this;
}

int put_on(void* task, const CatRecord& record, std::size_t length) {
  // In memory of just this length, so that a read beyond it is noticed.
  std::vector<unsigned char> exact(record.bytes.begin(), record.bytes.begin() + static_cast<long>(length));
  const CfName name = record.name();
  const void* keys[] = {name.data()};
  unsigned char none = 0;
  return db_put(task, DB_CAT, 1, keys, length == 0 ? &none : exact.data(),
                static_cast<std::uint16_t>(length));
}

int put_on(void* task, const std::string& dotted_name) {
  return put_on(task, CatRecord(dotted_name).text(dotted_name).last_byte(7), record_len);
}

int del_on(void* task, const std::string& dotted_name) {
  const CfName name = cf(dotted_name);
  const void* keys[] = {name.data()};
  return db_del(task, DB_CAT, 1, keys);
}

int get_on(void* task, const std::string& dotted_name, std::size_t length) {
  const CfName name = cf(dotted_name);
  const void* keys[] = {name.data()};
  std::vector<unsigned char> record(length);
  return db_get(task, DB_CAT, 1, keys, record.data(), static_cast<std::uint16_t>(length));
}

void CatalogTest::TearDown() {
  if (task) expect_catalog_sound();
  TargetsTest::TearDown();
}

CatReading CatalogTest::get_cf(const CfName& name, std::size_t length) {
  CatReading reading{0, CatRecord(CfName{})};
  std::vector<unsigned char> exact(length);
  const void* keys[] = {name.data()};
  reading.rc = db_get(task, DB_CAT, 1, keys, exact.data(), static_cast<std::uint16_t>(length));
  std::copy(exact.begin(), exact.end(), reading.record.bytes.begin());
  return reading;
}

int CatalogTest::number_of(const std::string& dotted_name) {
  return number_of(cf(dotted_name));
}

int CatalogTest::number_of(const CfName& name) {
  if (get_cf(name, 0).rc != DBE_OK) return -1;
  std::uint16_t number = 0;
  return memory::get_cat_num(task, &number, name.data()) == DBE_OK ? number : -1;
}

std::vector<std::string> CatalogTest::all_names() {
  get_on(task, "none");
  std::vector<std::string> names;
  for (std::uint32_t i = 0; i < cntl()->num_cat_actual; ++i)
    names.push_back(dotted(cat_slot(tcb()->cat_cntl[i].dist_idx).head));
  return names;
}

std::vector<unsigned> CatalogTest::differences() {
  get_on(task, "none");
  std::vector<unsigned> all;
  for (std::uint32_t i = 0; i < cntl()->num_cat_actual; ++i) all.push_back(tcb()->cat_cntl[i].name_diff);
  return all;
}

ListEntry CatalogTest::listed(const std::string& dotted_name) {
  const int number = number_of(dotted_name);
  EXPECT_GE(number, 0) << dotted_name;
  return {static_cast<std::uint16_t>(number), 0, cat_slot(static_cast<unsigned>(number)).cf_gen};
}

int CatalogTest::next_rc(const ListEntry& entry, std::size_t length, CatRecord* record) {
  std::uint16_t index = 0;
  std::vector<unsigned char> exact(length);
  const int rc =
      db_get_next(task, DB_CAT, &entry, 1, &index, exact.data(), static_cast<std::uint16_t>(length));
  EXPECT_EQ(index, 1);
  if (record) std::copy(exact.begin(), exact.end(), record->bytes.begin());
  return rc;
}

int CatalogTest::framed(const std::function<int()>& body) {
  std::int16_t rc = frame::dbr_in(task, frame::operation::write, DB_CAT);
  if (rc == DBE_OK) rc = static_cast<std::int16_t>(body());
  frame::dbr_out(task, frame::operation::write, DB_CAT, rc);
  return rc;
}

int CatalogTest::store_part(std::uint32_t db_id, unsigned number, unsigned product, unsigned fileset) {
  return framed([&] {
    struct stored {
      catalog::catalog_key key;
      unsigned char data[8];
    };
    stored record = {};
    record.key = {db_id,
                  static_cast<std::uint16_t>(number),
                  static_cast<std::uint16_t>(product),
                  static_cast<std::uint16_t>(fileset),
                  0,
                  0};
    catalog::catalog_key key = record.key;
    return recfile::db_write(task, tcb()->cat_file, &key, &record, sizeof record);
  });
}

int CatalogTest::parts_of(unsigned number) {
  int count = 0;
  framed([&] {
    for (const std::uint32_t db_id : {DB_PRD, DB_FST}) {
      catalog::catalog_key key = {db_id, static_cast<std::uint16_t>(number), 0, 0, 0, 0};
      std::int16_t option = recfile::KEY_GE;
      while (recfile::db_locate(task, tcb()->cat_file, &key, option) == DBE_OK && key.db_id == db_id &&
             key.cf_number == number) {
        ++count;
        option = recfile::KEY_GT;
      }
    }
    return DBE_OK;
  });
  return count;
}

int CatalogTest::store_raw(unsigned number, const CatRecord& record) {
  return framed([&] {
    catalog::catalog_key key = {DB_CAT, static_cast<std::uint16_t>(number), 0, 0, 0, 0};
    const int rc = keyed::put_keyed(task, DB_CAT, tcb()->cat_file, &key, record.bytes.data(), record_len);
    return rc == DBE_RECORD_REPLACED ? static_cast<int>(DBE_OK) : rc;
  });
}

int CatalogTest::remove_raw(unsigned number) {
  return framed([&] {
    catalog::catalog_key key = {DB_CAT, static_cast<std::uint16_t>(number), 0, 0, 0, 0};
    return recfile::db_delete(task, &key, tcb()->cat_file);
  });
}

std::vector<std::string> CatalogTest::table_lines() {
  get_on(task, "none");
  std::vector<std::string> lines;
  lines.push_back(numbered("slots ", cntl()->num_cat_inited));
  for (std::uint32_t i = 0; i < cntl()->num_cat_actual; ++i) {
    const CAT_CNTL_ENTRY& entry = tcb()->cat_cntl[i];
    const DIST_CAT_ENTRY& slot = cat_slot(entry.dist_idx);
    std::string line =
        dotted(slot.head) + numbered(" number ", slot.cf_number) + numbered(" differs at ", entry.name_diff);
    line.append(slot.head, slot.head + sizeof slot.head);
    lines.push_back(line);
  }
  for (std::uint32_t n = 0; n < cntl()->num_cat_inited; ++n)
    if (cat_slot(n).free_flag == 1) lines.push_back(numbered("free ", n));
  return lines;
}

void CatalogTest::expect_agreement() {
  const std::vector<std::string> shown = table_lines();
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(shown, table_lines()) << "what memory showed, and what a rebuild makes of the file";
}

void CatalogTest::expect_catalog_sound() {
  // A call that maps the present tables; tables that cannot be built are none.
  if (get_on(task, "none", 0) == DBE_INIT_FAILED) return;
  char reason[200] = {};
  EXPECT_TRUE(memory::catalog_sound(task, reason, sizeof reason)) << reason;
}

}  // namespace catalog_test
