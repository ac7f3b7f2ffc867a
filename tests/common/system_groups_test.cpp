// Levels by groups of the system, with users and groups of the test's own.
#include <dlfcn.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "support/temp_installation.h"
#include "zvrco/zvrco.h"

namespace {

using zvrdb::test::TempInstallation;

struct Accounts {
  std::map<std::string, gid_t> groups;
  std::map<std::string, std::vector<gid_t>> users;  // the first group is the primary one
  size_t room_needed = 0;                           // of an entry; less answers ERANGE
};
Accounts* accounts = nullptr;  // null: those of the system

template <typename Function>
Function real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// These stand in the place of the C library's for the whole test program.
extern "C" int getpwnam_r(const char* name, passwd* entry, char* room, size_t size, passwd** result) {
  if (accounts == nullptr) return real<decltype(&getpwnam_r)>("getpwnam_r")(name, entry, room, size, result);
  *result = nullptr;
  if (size < accounts->room_needed) return ERANGE;
  const auto user = accounts->users.find(name);
  if (user == accounts->users.end()) return 0;
  *entry = passwd{};
  entry->pw_gid = user->second.at(0);
  *result = entry;
  return 0;
}

extern "C" int getgrnam_r(const char* name, group* entry, char* room, size_t size, group** result) {
  if (accounts == nullptr) return real<decltype(&getgrnam_r)>("getgrnam_r")(name, entry, room, size, result);
  *result = nullptr;
  if (size < accounts->room_needed) return ERANGE;
  const auto found = accounts->groups.find(name);
  if (found == accounts->groups.end()) return 0;
  *entry = group{};
  entry->gr_gid = found->second;
  *result = entry;
  return 0;
}

extern "C" int getgrouplist(const char* name, gid_t primary, gid_t* groups, int* count) {
  if (accounts == nullptr) return real<decltype(&getgrouplist)>("getgrouplist")(name, primary, groups, count);
  const std::vector<gid_t>& all = accounts->users.at(name);
  const int room = *count;
  *count = static_cast<int>(all.size());
  for (int i = 0; i < room && i < *count; ++i) groups[i] = all[static_cast<size_t>(i)];
  return *count > room ? -1 : *count;
}

namespace {

class SystemGroups : public testing::Test {
 protected:
  void SetUp() override {
    task_ = co_init_task("t", nullptr, 1);
    ASSERT_NE(task_, nullptr) << co_init_error();
    accounts = &accounts_;
  }
  void TearDown() override {
    accounts = nullptr;
    coi_term_task(task_, 0);
  }
  uint16_t level(const char* user) {
    uint16_t value = 9999;
    EXPECT_EQ(co_get_uauth(task_, user, nullptr, &value), CO_OK);
    return value;
  }
  TempInstallation installation_;
  Accounts accounts_;
  void* task_ = nullptr;
};

TEST_F(SystemGroups, TheHighestGroupOfAUserIsItsLevel) {
  accounts_.groups = {{"zvrusr", 70}, {"zvrbld", 71}, {"zvradm", 72}};
  accounts_.users = {
      {"uma", {5, 70}}, {"bo", {71}}, {"ada", {70, 71, 72}}, {"ben", {5, 70, 71}}, {"out", {5, 6}}};
  EXPECT_EQ(level("uma"), 0);
  EXPECT_EQ(level("bo"), 1);
  EXPECT_EQ(level("ada"), 2);
  EXPECT_EQ(level("ben"), 1);
  EXPECT_EQ(level("out"), 255);
  EXPECT_EQ(level("stranger"), 255);
}

TEST_F(SystemGroups, AGroupThatTheSystemDoesNotHaveGivesNothing) {
  accounts_.groups = {{"zvrusr", 70}};
  accounts_.users = {{"uma", {70, 71, 72}}, {"bo", {71}}};
  EXPECT_EQ(level("uma"), 0);
  EXPECT_EQ(level("bo"), 255);
}

TEST_F(SystemGroups, TheFileOfUsersComesFirst) {
  accounts_.groups = {{"zvradm", 72}};
  accounts_.users = {{"ada", {72}}, {"ari", {72}}, {"abe", {72}}};
  installation_.write("users", "ada none\nari 0\nabe 1 SERVER1\n");
  EXPECT_EQ(level("ada"), 254);
  EXPECT_EQ(level("ari"), 0);
  EXPECT_EQ(level("abe"), 2);  // its only line is for another target
}

TEST_F(SystemGroups, GroupsOfManyMembersCountToo) {
  accounts_.groups = {{"zvradm", 72}};
  accounts_.users = {{"ada", {72}}};
  accounts_.room_needed = 300000;
  EXPECT_EQ(level("ada"), 2);
}

TEST_F(SystemGroups, AUserOfManyGroupsIsAMemberOfThemAll) {
  accounts_.groups = {{"zvradm", 72}, {"zvrusr", 70}};
  std::vector<gid_t> many(5000, 5);
  many[0] = 70;
  many.back() = 72;
  accounts_.users = {{"joiner", many}};
  EXPECT_EQ(level("joiner"), 2);
}

TEST_F(SystemGroups, AFileOfUsersThatCannotBeReadAuthorizesNobody) {
  accounts_.groups = {{"zvradm", 72}};
  accounts_.users = {{"ada", {72}}};
  ASSERT_EQ(mkdir(installation_.path("users").c_str(), 0700), 0);
  uint16_t value = 9999;
  EXPECT_EQ(co_get_uauth(task_, "ada", nullptr, &value), CO_IO_ERROR);
  EXPECT_EQ(value, 255);
}

}  // namespace
