#include "users/users_fixture.h"

#include "recfile/recfile.h"

namespace users_test {

namespace {

std::uint32_t name_width(std::uint32_t db_id) {
  return db_id == DB_USR || db_id == DB_APR ? 16 : 64;
}

// A name that fills its width has no NUL behind it.
std::vector<char> key_bytes(std::uint32_t db_id, const std::string& name) {
  std::vector<char> bytes(name.begin(), name.end());
  if (bytes.size() < name_width(db_id)) bytes.push_back(0);
  return bytes;
}

template <class Layout>
Layout named(std::string_view name) {
  Layout record{};
  std::memcpy(&record, name.data(), name.size());
  return record;
}

template <class Layout>
void set_members(Layout* group, const std::vector<std::string>& members) {
  group->num_members = static_cast<std::uint16_t>(members.size());
  for (std::size_t i = 0; i < members.size(); ++i) set_text(group->members[i], members[i]);
}

template <class Layout>
std::vector<std::string> names_in(const Layout& group) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < group.num_members; ++i) names.push_back(text_of(group.members[i]));
  return names;
}

}  // namespace

db_usr user(std::string_view name, std::string_view description) {
  auto record = named<db_usr>(name);
  set_text(record.description, description);
  return record;
}

db_apr profile(std::string_view name, unsigned config) {
  auto record = named<db_apr>(name);
  record.config = static_cast<std::uint8_t>(config);
  return record;
}

db_tg group(std::string_view name, const std::vector<std::string>& members) {
  auto record = named<db_tg>(name);
  set_members(&record, members);
  return record;
}

db_dtg dynamic_group(std::string_view name, std::string_view selection,
                     const std::vector<std::string>& members) {
  auto record = named<db_dtg>(name);
  set_text(record.selection, selection);
  set_members(&record, members);
  return record;
}

std::vector<std::string> members_of(const db_tg& group) {
  return names_in(group);
}
std::vector<std::string> members_of(const db_dtg& group) {
  return names_in(group);
}

int store_on(void* task, std::uint32_t db_id, const std::string& name, void* record, std::size_t length) {
  const std::vector<char> key = key_bytes(db_id, name);
  const void* keys[] = {key.data()};
  return db_put(task, db_id, 1, keys, record, static_cast<std::uint16_t>(length));
}

int drop_on(void* task, std::uint32_t db_id, const std::string& name) {
  const std::vector<char> key = key_bytes(db_id, name);
  const void* keys[] = {key.data()};
  return db_del(task, db_id, 1, keys);
}

int UsersTest::load(std::uint32_t db_id, const std::string& name, std::size_t length) {
  const std::vector<char> key = key_bytes(db_id, name);
  const void* keys[] = {key.data()};
  loaded.assign(length, 0xEE);
  return db_get(task, db_id, 1, keys, loaded.data(), static_cast<std::uint16_t>(length));
}

int UsersTest::store_keys(std::uint32_t db_id, const db_ak& table, std::size_t length) {
  Bytes exact(length);
  std::memcpy(exact.data(), &table, std::min(length, sizeof table));
  return db_put(task, db_id, 0, nullptr, exact.data(), static_cast<std::uint16_t>(length));
}

int UsersTest::load_keys(std::uint32_t db_id, std::size_t length) {
  loaded.assign(length, 0xEE);
  return db_get(task, db_id, 0, nullptr, loaded.data(), static_cast<std::uint16_t>(length));
}

int UsersTest::begin_list(std::uint32_t db_id, const std::string& filter, Bytes* state) {
  std::vector<char> text = key_bytes(db_id, filter);
  state->assign(name_width(db_id) == 16 ? 280 : 328, 0xEE);
  return db_init_list(task, db_id, text.data(), state->data(), static_cast<std::uint32_t>(state->size()));
}

std::vector<std::string> UsersTest::list(std::uint32_t db_id, const std::string& filter) {
  Bytes state;
  EXPECT_EQ(begin_list(db_id, filter, &state), DBE_OK);
  std::vector<std::string> names;
  const std::uint32_t width = name_width(db_id);
  for (;;) {
    Bytes record(int_key_len[db_id], 0xEE);
    const int rc =
        db_get_more(task, db_id, state.data(), record.data(), static_cast<std::uint16_t>(record.size()));
    if (rc == DBE_END_OF_LIST) return names;
    EXPECT_EQ(rc, DBE_OK);
    if (rc != DBE_OK) return names;
    const auto* name = reinterpret_cast<const char*>(record.data());
    names.emplace_back(name, strnlen(name, width));
  }
}

void UsersTest::put_targets(unsigned count) {
  for (unsigned i = 0; i < count; ++i) ASSERT_EQ(put(Record(numbered("T", i)), 192), DBE_OK);
}

std::uint32_t UsersTest::groups_in_file(std::uint32_t db_id) {
  file_entry* file = db_id == DB_TG ? tcb()->tg_file : tcb()->dtg_file;
  Bytes key(72);
  std::uint32_t count = 0;
  for (std::int16_t option = recfile::KEY_FIRST; recfile::db_locate(task, file, key.data(), option) == DBE_OK;
       option = recfile::KEY_GT)
    ++count;
  return count;
}

Bytes UsersTest::stored(file_entry* DBR_TCB::*file, const Bytes& key) {
  Bytes located = key;
  if (recfile::db_locate(task, tcb()->*file, located.data(), recfile::KEY_EQ) != DBE_OK) return {};
  Bytes record(65535);
  std::uint32_t length = 65535;
  EXPECT_EQ(recfile::db_read(task, tcb()->*file, record.data(), &length), DBE_OK);
  record.resize(length);
  return record;
}

void UsersTest::expect_counts(std::uint32_t groups, std::uint32_t dynamic_groups) {
  EXPECT_EQ(index_rc(""), DBE_NO_TARGET);  // a call, so that the tables are the present ones
  EXPECT_EQ(cntl()->num_tg_actual, groups);
  EXPECT_EQ(cntl()->num_dtg_actual, dynamic_groups);
  EXPECT_EQ(groups_in_file(DB_TG), groups);
  EXPECT_EQ(groups_in_file(DB_DTG), dynamic_groups);
}

}  // namespace users_test
