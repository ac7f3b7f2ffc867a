// The two tables of access keys and their places in memory.
#include <cerrno>

#include "engine/os_file.h"
#include "users/users_fixture.h"

namespace users_test {
namespace {

bool disk_is_full = false;
unsigned reads = 0;

std::int64_t write_unless_full(int file, std::uint64_t offset, const void* from, std::size_t n) {
  if (disk_is_full) {
    errno = ENOSPC;
    return -1;
  }
  return engine::linux_ops.write_at(file, offset, from, n);
}

std::int64_t counted_read(int file, std::uint64_t offset, void* to, std::size_t n) {
  ++reads;
  return engine::linux_ops.read_at(file, offset, to, n);
}

struct Table {
  const char* name;
  std::uint32_t db_id;
  std::uint32_t area;
};
constexpr Table tables[] = {{"TAK", DB_TAK, 13}, {"DAK", DB_DAK, 14}};

// Rows as the migration makes them, with this word in their descriptions.
db_ak rows(const std::string& name, const std::string& word = "") {
  db_ak table{};
  for (unsigned i = 0; i < DB_ACCESS_KEYS; ++i) {
    set_text(table.keys[i].name, numbered(name, i + 1));
    table.keys[i].mask = 1u << i;
    set_text(table.keys[i].description, numbered("This is " + name, i + 1) + word);
  }
  return table;
}

Bytes bytes_of(const db_ak& table) {
  Bytes bytes(sizeof table);
  std::memcpy(bytes.data(), &table, sizeof table);
  return bytes;
}

class AccessKeys : public UsersTest, public ::testing::WithParamInterface<Table> {
 protected:
  void SetUp() override {
    disk_is_full = false;
    operations = engine::linux_ops;
    operations.write_at = write_unless_full;
    operations.read_at = counted_read;
    engine::set_os_ops(&operations);
    UsersTest::SetUp();
  }
  void TearDown() override {
    disk_is_full = false;
    UsersTest::TearDown();
    engine::set_os_ops(nullptr);
  }
  int store_table(const db_ak& table, std::size_t length = sizeof(db_ak)) {
    return store_keys(GetParam().db_id, table, length);
  }
  int load_table(std::size_t length = sizeof(db_ak)) { return load_keys(GetParam().db_id, length); }
  db_ak table(const std::string& word = "") const { return rows(GetParam().name, word); }
  unsigned char* area() { return static_cast<unsigned char*>(co_croca(task, GetParam().area)); }
  std::uint32_t loaded_flag() {
    std::uint32_t flag = 0;
    std::memcpy(&flag, area(), sizeof flag);
    return flag;
  }
  Bytes cached() { return Bytes(area() + 4, area() + 4 + sizeof(db_ak)); }
  // From here on the table in memory counts for nothing.
  void forget() { std::memset(area(), 0, 4 + sizeof(db_ak)); }

  engine::os_ops operations{};
};

TEST_P(AccessKeys, ATableComesBackAsItWasPut) {
  EXPECT_EQ(store_table(table()), DBE_OK);
  EXPECT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, bytes_of(table()));
  forget();
  EXPECT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, bytes_of(table())) << "from the file";
  EXPECT_EQ(store_table(table("!")), DBE_RECORD_REPLACED);
}

TEST_P(AccessKeys, WithoutARecordThereIsNoTable) {
  EXPECT_EQ(load_table(), DBE_NOT_FOUND);
  EXPECT_EQ(loaded, Bytes(sizeof(db_ak), 0xEE));
  EXPECT_EQ(loaded_flag(), 0u);
}

TEST_P(AccessKeys, AfterAPutTheNextGetReadsNoFile) {
  ASSERT_EQ(store_table(table()), DBE_OK);
  ASSERT_EQ(store_table(table("!")), DBE_RECORD_REPLACED);
  reads = 0;
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, bytes_of(table("!")));
  EXPECT_EQ(reads, 0u);
}

TEST_P(AccessKeys, OneReadOfTheFileServesAllProcesses) {
  ASSERT_EQ(store_table(table()), DBE_OK);
  forget();
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded_flag(), 1u);
  EXPECT_EQ(cached(), bytes_of(table()));
  EXPECT_EQ(in_child([&](void* child) {
              db_ak read{};
              if (db_get(child, DB_TRG, 0, nullptr, &read, 1) == DBE_OK)
                return 1;  // enters, and opens the files
              reads = 0;
              if (db_get(child, GetParam().db_id, 0, nullptr, &read, sizeof read) != DBE_OK) return 2;
              return reads == 0 && bytes_of(read) == bytes_of(table()) ? 0 : 3;
            }),
            0);
}

TEST_P(AccessKeys, APutOfOneProcessIsSeenByTheOthers) {
  ASSERT_EQ(store_table(table()), DBE_OK);
  EXPECT_EQ(in_child([&](void* child) {
              db_ak changed = table("?");
              return db_put(child, GetParam().db_id, 0, nullptr, &changed, sizeof changed) ==
                             DBE_RECORD_REPLACED
                         ? 0
                         : 1;
            }),
            0);
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, bytes_of(table("?")));
}

TEST_P(AccessKeys, AGetOfAnyLengthGivesTheBeginOfTheTable) {
  ASSERT_EQ(store_table(table()), DBE_OK);
  for (const std::size_t length : {0u, 1u, 11u, 12u, 76u, 77u, 2431u, 2432u}) {
    forget();
    ASSERT_EQ(load_table(length), DBE_OK);
    const Bytes whole = bytes_of(table());
    EXPECT_EQ(loaded, Bytes(whole.begin(), whole.begin() + static_cast<long>(length))) << length;
  }
}

TEST_P(AccessKeys, AGetLongerThanTheTableLeavesTheRestAlone) {
  ASSERT_EQ(store_table(table()), DBE_OK);
  ASSERT_EQ(load_table(65535), DBE_OK);
  EXPECT_EQ(Bytes(loaded.begin() + sizeof(db_ak), loaded.end()), Bytes(65535 - sizeof(db_ak), 0xEE));
}

TEST_P(AccessKeys, APutLongerThanTheTableKeepsTheTable) {
  Bytes behind(4, 0);
  ASSERT_EQ(store_table(table(), 65535), DBE_OK);
  EXPECT_EQ(cached(), bytes_of(table()));
  forget();
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, bytes_of(table())) << "the whole record is in the file";
}

// What is in the file ends in a NUL, what is in memory does not.
TEST_P(AccessKeys, AShortPutIsTakenAsItIsByMemoryAndLosesItsLastByteInTheFile) {
  ASSERT_EQ(store_table(table("old")), DBE_OK);
  ASSERT_EQ(store_table(table(), 78), DBE_RECORD_REPLACED);
  Bytes expected = bytes_of(table());
  std::fill(expected.begin() + 78, expected.end(), static_cast<unsigned char>(0));
  ASSERT_NE(expected[77], 0);
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, expected) << "zeros behind what was given";
  forget();
  expected[77] = 0;
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, expected);
}

TEST_P(AccessKeys, AFailedWriteLeavesTheTableInMemoryAlone) {
  ASSERT_EQ(store_table(table()), DBE_OK);
  disk_is_full = true;
  EXPECT_EQ(store_table(table("!")), DBE_IO_ERROR);
  EXPECT_EQ(loaded_flag(), 1u);
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, bytes_of(table()));
  forget();
  EXPECT_EQ(store_table(table("!")), DBE_IO_ERROR);
  EXPECT_EQ(loaded_flag(), 0u) << "what was not loaded is not loaded by a failure";
  disk_is_full = false;
  new_task();
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, bytes_of(table()));
}

TEST_P(AccessKeys, ARolledBackPutStaysInMemory) {
  ASSERT_EQ(store_table(table()), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_APR), DBE_OK);
  ASSERT_EQ(store_table(table("!")), DBE_RECORD_REPLACED);
  ASSERT_EQ(db_rollback(task, DB_APR), DBE_OK);
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, bytes_of(table("!")));
  forget();
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, bytes_of(table())) << "the file has the old one";
}

TEST_P(AccessKeys, TheTablesHaveNoTransactionOfTheirOwn) {
  EXPECT_EQ(db_start_trans(task, GetParam().db_id), DBE_BAD_DB_ID);
  EXPECT_EQ(logged(36366), 1);
  EXPECT_EQ(logged(36430), 1);
  EXPECT_EQ(store_table(table()), DBE_OK) << "nothing is left open";
}

TEST_P(AccessKeys, ThePutOfATaskThatWasKilledInATransactionIsForgotten) {
  ASSERT_EQ(store_table(table()), DBE_OK);
  kill_writer_after([&](void* child) {
    db_ak changed = table("!");
    db_start_trans(child, DB_APR);
    db_put(child, GetParam().db_id, 0, nullptr, &changed, sizeof changed);
  });
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, bytes_of(table()));
}

TEST_P(AccessKeys, NeitherTableKnowsTheOther) {
  const std::uint32_t other = GetParam().db_id == DB_TAK ? DB_DAK : DB_TAK;
  ASSERT_EQ(store_table(table()), DBE_OK);
  EXPECT_EQ(load_keys(other), DBE_NOT_FOUND);
  ASSERT_EQ(store_keys(other, rows("OTHER")), DBE_OK);
  ASSERT_EQ(load_table(), DBE_OK);
  EXPECT_EQ(loaded, bytes_of(table()));
}

TEST_P(AccessKeys, ThereIsNoDeletionAndNoList) {
  char filter[] = "*";
  Bytes state(280);
  EXPECT_EQ(db_del(task, GetParam().db_id, 0, nullptr), DBE_BAD_DB_ID);
  EXPECT_EQ(db_init_list(task, GetParam().db_id, filter, state.data(), 280), DBE_BAD_DB_ID);
}

INSTANTIATE_TEST_SUITE_P(Of, AccessKeys, ::testing::ValuesIn(tables),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
}  // namespace users_test
