// An installation with the exported calls on users, profiles, access keys and groups in
// short form, and the targets that they name.
#pragma once

#include <zvrdb/records.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "targets/targets_fixture.h"

namespace users_test {

using namespace zvrdb;
using target_test::numbered;
using target_test::Record;

using Bytes = std::vector<unsigned char>;

// A text into a field: zero filled, without a NUL when it is as long as the field.
template <std::size_t width>
void set_text(char (&field)[width], std::string_view text) {
  std::memset(field, 0, width);
  std::memcpy(field, text.data(), std::min(text.size(), width));
}
template <std::size_t width>
std::string text_of(const char (&field)[width]) {
  return std::string(field, strnlen(field, width));
}

db_usr user(std::string_view name, std::string_view description = "");
db_apr profile(std::string_view name, unsigned config = 0);
db_tg group(std::string_view name, const std::vector<std::string>& members = {});
db_dtg dynamic_group(std::string_view name, std::string_view selection = "",
                     const std::vector<std::string>& members = {});
std::vector<std::string> members_of(const db_tg& group);
std::vector<std::string> members_of(const db_dtg& group);

// On any task.
int store_on(void* task, std::uint32_t db_id, const std::string& name, void* record, std::size_t length);
int drop_on(void* task, std::uint32_t db_id, const std::string& name);

class UsersTest : public target_test::TargetsTest {
 protected:
  // The record lies in memory of just the length, so that a read beyond it is noticed.
  // What the call made of it comes back.
  template <class Layout>
  int store(std::uint32_t db_id, const std::string& name, Layout* record,
            std::size_t length = sizeof(Layout)) {
    Bytes exact(length);
    if (length == 0) exact.reserve(1);  // so that there is an address
    std::memcpy(exact.data(), record, std::min(length, sizeof *record));
    const int rc = store_on(task, db_id, name, exact.data(), length);
    std::memcpy(record, exact.data(), std::min(length, sizeof *record));
    return rc;
  }
  template <class Layout>
  int store(std::uint32_t db_id, const std::string& name, Layout record) {
    return store(db_id, name, &record);
  }
  int store(const db_usr& record) { return store(DB_USR, text_of(record.usr_name), record); }
  int store(const db_apr& record) { return store(DB_APR, text_of(record.name), record); }
  int store(const db_tg& record) { return store(DB_TG, text_of(record.name), record); }
  int store(const db_dtg& record) { return store(DB_DTG, text_of(record.name), record); }
  int drop(std::uint32_t db_id, const std::string& name) { return drop_on(task, db_id, name); }

  // What a get of this length answers; `loaded` holds the bytes, which were 0xEE before.
  int load(std::uint32_t db_id, const std::string& name, std::size_t length);
  template <class Layout>
  Layout loaded_as() const {
    Layout record{};
    std::memcpy(&record, loaded.data(), std::min(loaded.size(), sizeof record));
    return record;
  }
  template <class Layout>
  Layout load_whole(std::uint32_t db_id, const std::string& name) {
    EXPECT_EQ(load(db_id, name, sizeof(Layout)), DBE_OK) << name;
    return loaded_as<Layout>();
  }

  // A table of access keys.
  int store_keys(std::uint32_t db_id, const db_ak& table, std::size_t length = sizeof(db_ak));
  int load_keys(std::uint32_t db_id, std::size_t length = sizeof(db_ak));

  // The names that a list gives, by db_init_list and db_get_more.
  std::vector<std::string> list(std::uint32_t db_id, const std::string& filter);
  int begin_list(std::uint32_t db_id, const std::string& filter, Bytes* state);

  void put_targets(unsigned count);  // "T0" and so on
  // Records of this kind of group in its file, counted by a walk over it.
  std::uint32_t groups_in_file(std::uint32_t db_id);
  // What is stored under this key of the file, whose handle field is given: the bytes
  // with the key; none when there is no such record.
  Bytes stored(file_entry* DBR_TCB::*file, const Bytes& key);
  // The counts in memory, and those of the files.
  void expect_counts(std::uint32_t groups, std::uint32_t dynamic_groups);

  Bytes loaded;
};

}  // namespace users_test
