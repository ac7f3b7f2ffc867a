// The example program, started as an administrator would.
#include <sys/wait.h>
#include <unistd.h>
#include <zvrdb/zvrdb.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tasklaunch/launch_fixture.h"

namespace {

struct outcome {
  int code;
  std::string text;
};

class Example : public zvrtest::LaunchTest {
 protected:
  void SetUp() override {
    zvrtest::LaunchTest::SetUp();
    std::filesystem::create_directory(installation_.path("bin"));
    for (const char* name : {"courier", "sorter", "Courier.x", "stranger"})
      std::filesystem::create_symlink(ZVR_COURIER, installation_.path(std::string("bin/") + name));
    std::array<unsigned char, 21724> record = {};
    record[0] = 'O';
    record[1] = 'K';
    record[140] = 32;  // a local target
    const void* keys[] = {record.data()};
    ASSERT_EQ(DBE_OK, db_put(task_, DB_TRG, 1, keys, record.data(), record.size()));
  }
  outcome run(const std::string& command) const {
    const std::string line = "PATH=" + installation_.path("bin") + ":$PATH " + installation_.path("bin/") + command + " 2>&1";
    FILE* out = popen(line.c_str(), "r");
    std::string text;
    char piece[256];
    while (const std::size_t got = fread(piece, 1, sizeof piece, out)) text.append(piece, got);
    const int status = pclose(out);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000, text};
  }
};

TEST_F(Example, TheCommandStartsAThreadAndAProgramThatBothFindTheTarget) {
  const outcome ran = run("courier OK");
  EXPECT_EQ("carrier: OK is target 1\nsorter: OK is target 1\n", ran.text);
  EXPECT_EQ(0, ran.code);
  EXPECT_EQ(1u, logged(35864));
}

TEST_F(Example, IsFoundByItsLowerCaseStem) {
  EXPECT_EQ("carrier: OK is target 1\nsorter: OK is target 1\n", run("Courier.x OK").text);
}

TEST_F(Example, CalledByANameOfNoTaskItLeavesWith99) {
  const outcome ran = run("stranger OK");
  EXPECT_EQ(99, ran.code);
  EXPECT_NE(std::string::npos, ran.text.find("ZVRCO014E: Task stranger not found."));
}

TEST_F(Example, WithoutTheProgramOfItsLoadTableItTellsTheCode) {
  std::filesystem::remove(installation_.path("bin/sorter"));
  const outcome ran = run("courier OK");
  EXPECT_EQ("carrier: OK is target 1\ncourier: the task was not started: 281\n", ran.text);
  EXPECT_EQ(1, ran.code);
  EXPECT_EQ(1u, logged(35844));
}

}  // namespace
