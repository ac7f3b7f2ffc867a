#include "memory/record_types.h"

#include <fstream>
#include <iterator>
#include <set>

#include "memory/shared_tables_fixture.h"

namespace zvrtest {
namespace {

std::string name_of(void* task, std::uint32_t db_id) {
  char name[128];
  std::memset(name, 'x', sizeof name);
  zvrdb::memory::type_str(task, db_id, name);
  return name;
}

TEST(RecordTypes, EveryTypeHasANameOfItsOwnButTheTwoKindsOfCorrelator) {
  table_task t;
  std::set<std::string> names;
  for (std::uint32_t db_id = 0; db_id <= 32; ++db_id) {
    if (db_id >= 12 && db_id <= 16) continue;
    EXPECT_NE(name_of(t.task(), db_id), "") << db_id;
    names.insert(name_of(t.task(), db_id));
  }
  EXPECT_EQ(name_of(t.task(), 28), name_of(t.task(), 29));
  EXPECT_EQ(names.size(), 27u);
}

// Types 22 and 23 have their numbers the other way round.
TEST(RecordTypes, EachNameIsTheTextOfItsMessage) {
  table_task t;
  const unsigned messages[33] = {36393, 36394, 36395, 36396, 36397, 36398, 36399, 36400, 36401, 36402, 36403,
                                 36404, 0,     0,     0,     0,     0,     36419, 36420, 36464, 36421, 36422,
                                 36424, 36423, 36425, 36426, 36427, 36428, 36458, 36458, 36463, 36466, 36467};
  for (std::uint32_t db_id = 0; db_id < 33; ++db_id) {
    if (messages[db_id] == 0) continue;
    char rendered[CO_MESSAGE_BUFFER] = {};
    co_log2_notest(t.task(), messages[db_id], rendered, 0, 0, "%s", "");
    EXPECT_EQ(name_of(t.task(), db_id), rendered + 19) << db_id;
  }
}

TEST(RecordTypes, UnassignedTypesHaveAnEmptyName) {
  table_task t;
  for (const std::uint32_t db_id : {12u, 13u, 14u, 15u, 16u, 33u, 34u, 1000u, 0xFFFFFFFFu})
    EXPECT_EQ(name_of(t.task(), db_id), "") << db_id;
}

TEST(RecordTypes, AMessageIsLoggedWithTheNameOfTheType) {
  table_task t;
  zvrdb::memory::log_db_msg(t.task(), 36456, DB_TRG);
  std::ifstream log(co_log_path(t.task()));
  const std::string text((std::istreambuf_iterator<char>(log)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find("36456"), std::string::npos) << text;
  EXPECT_NE(text.find(name_of(t.task(), DB_TRG)), std::string::npos) << text;
}

}  // namespace
}  // namespace zvrtest
