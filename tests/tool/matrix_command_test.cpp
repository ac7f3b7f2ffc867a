// matrix, from the command line to what is printed or written.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class MatrixCommand : public testing::Test {
 protected:
  void SetUp() override {
    setenv("COLUMNS", "80", 1);
    ASSERT_EQ(base.init().exit, 0);
    const tool_result filled = base.tool({"import", "-"}, R"({"type":"trg","trg_name":"BERGEN","trg_type":34})" "\n"
                                                          R"({"type":"trg","trg_name":"BODO","trg_type":130})" "\n"
                                                          R"({"type":"cat","cf_name":["libs","zlib","FIX","1.2"]})" "\n"
                                                          R"({"type":"cat","cf_name":["libs","zlib","REF","1"],"cf_flags":32})" "\n"
                                                          R"({"type":"cat","cf_name":["shells","bash","REF","5"]})" "\n");
    ASSERT_EQ(filled.exit, 0) << filled.err;
    const tool_result status = base.tool({"cms", "import"}, pair("OSLO", R"("libs","zlib","FIX","1.2")", 5) +
                                                              pair("OSLO", R"("shells","bash","REF","5")", 6) +
                                                              pair("BODO", R"("libs","zlib","FIX","1.2")", 5));
    ASSERT_EQ(status.exit, 0) << status.err;
  }
  static std::string pair(const std::string& target, const std::string& tokens, int status) {
    return R"({"trg_name":")" + target + R"(","cf_name":[)" + tokens + R"(],"cm_status":)" + std::to_string(status) + "}\n";
  }
  tool_result matrix(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), "matrix");
    return base.tool(arguments);
  }
  // What the page's script would read.
  static zvradm::json data_of(const std::string& page) {
    const std::string mark = "<script type=\"application/json\" id=\"data\">";
    const std::size_t from = page.find(mark);
    if (from == std::string::npos) return nullptr;
    const std::size_t begin = from + mark.size();
    return zvradm::json::parse(page.substr(begin, page.find("</script>", begin) - begin));
  }
  scratch_base base;
};

TEST_F(MatrixCommand, TellsTheStateOfEveryPair) {
  const tool_result result = matrix();
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_EQ(result.out,
            "   1  libs.zlib.FIX.1\\.2\n"
            "   2  libs.zlib.REF.1\n"
            "   3  shells.bash.REF.5\n"
            "\n"
            "Target   1   2   3\n"
            "BERGEN   .   d   .\n"
            "BODO     5   .   .\n"
            "OSLO     5   d   6\n"
            "\n"
            "3 targets, 3 change files\n"
            "   5  status 5: 2 pairs\n"
            "   6  status 6: 1 pair\n"
            "   .  no status: 4 pairs\n"
            "   d  default: 2 pairs\n");
}

TEST_F(MatrixCommand, OfAnEmptyInstallationHasItsLocalTargetOnly) {
  scratch_base empty;
  ASSERT_EQ(empty.init().exit, 0);
  const tool_result result = empty.tool({"matrix"});
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_EQ(result.out, "1 target, 0 change files\n");
}

TEST_F(MatrixCommand, FollowsWhatIsStoredAndDeleted) {
  ASSERT_EQ(base.tool({"cms", "put", "BERGEN", "shells.bash.REF.5", "200"}).exit, 0);
  ASSERT_EQ(base.tool({"cms", "del-file", R"(libs.zlib.FIX.1\.2)"}).exit, 0);
  ASSERT_EQ(base.tool({"del", "cat", R"(libs.zlib.FIX.1\.2)"}).exit, 0);
  const std::string out = matrix().out;
  EXPECT_THAT(out, Not(HasSubstr("FIX")));
  EXPECT_THAT(out, HasSubstr("BERGEN   d 200\nBODO     .   .\nOSLO     d   6\n"));
}

TEST_F(MatrixCommand, ShowsTheTargetsWhoseNamesBeginSo) {
  EXPECT_THAT(matrix({"--targets", "B"}).out, HasSubstr("BERGEN   .   d   .\nBODO     5   .   .\n\n2 targets"));
  EXPECT_THAT(matrix({"--targets", "BO*"}).out, HasSubstr("1 target, 3 change files"));
  EXPECT_THAT(matrix({"--targets", "X"}).out, HasSubstr("0 targets, 3 change files"));
}

TEST_F(MatrixCommand, ShowsTheChangeFilesThatPassTheFilter) {
  EXPECT_THAT(matrix({"--files", "*.*.REF.*"}).out, StartsWith("   1  libs.zlib.REF.1\n   2  shells.bash.REF.5\n\n"));
  EXPECT_THAT(matrix({"--files", R"(libs.*.FIX.1\.?)"}).out, StartsWith("   1  libs.zlib.FIX.1\\.2\n\n"));
  EXPECT_EQ(matrix({"--files", "games.*.*.*"}).out, "3 targets, 0 change files\n");
  EXPECT_THAT(matrix({"--files", "shells.*.*.*", "--targets", "O"}).out, HasSubstr("OSLO     6\n"));
}

TEST_F(MatrixCommand, RefusesAFilterThatIsNoName) {
  const tool_result files = matrix({"--files", std::string(66, 'x')});
  EXPECT_EQ(files.exit, 2);
  EXPECT_THAT(files.err, HasSubstr("--files: "));
  EXPECT_THAT(files.err, HasSubstr("takes 67 bytes, at most 65"));
  EXPECT_EQ(matrix({"--files", "1.2.3.4.5.6.7.8.9.10.11.12"}).exit, 2);
  const tool_result targets = matrix({"--targets", std::string(64, 'x')});
  EXPECT_EQ(targets.exit, 2);
  EXPECT_THAT(targets.err, HasSubstr("--targets is longer than 63 bytes"));
  EXPECT_THAT(targets.out, IsEmpty());
}

TEST_F(MatrixCommand, RefusesWhereThereIsNoInstallation) {
  const tool_result result = run_tool({"--base", base.path() + "-nowhere", "matrix"});
  EXPECT_NE(result.exit, 0);
  EXPECT_THAT(result.err, HasSubstr("-nowhere"));
}

TEST_F(MatrixCommand, WritesThePageInPlaceOfTheTable) {
  const std::string page_file = base.file("states.html");
  const tool_result result = matrix({"--html", page_file, "--targets", "B"});
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_EQ(result.out, "");
  const std::string page = read_file(page_file);
  EXPECT_THAT(page, StartsWith("<!DOCTYPE html>\n"));
  const zvradm::json data = data_of(page);
  ASSERT_TRUE(data.is_object());
  EXPECT_EQ(data["targets"], zvradm::json({"BERGEN", "BODO"}));
  EXPECT_EQ(data["files"], zvradm::json({R"(libs.zlib.FIX.1\.2)", "libs.zlib.REF.1", "shells.bash.REF.5"}));
  EXPECT_EQ(data["states"], zvradm::json({5, 15, 128}));
  EXPECT_EQ(data["rows"], zvradm::json({"BCB", "ABB"}));
}

TEST_F(MatrixCommand, ReplacesAnOlderPageAndLeavesNothingBeside) {
  const std::string page_file = base.file("states.html");
  write_file(page_file, "older");
  ASSERT_EQ(matrix({"--html", page_file}).exit, 0);
  EXPECT_THAT(read_file(page_file), StartsWith("<!DOCTYPE html>\n"));
  struct stat found {};
  EXPECT_NE(stat((page_file + ".new").c_str(), &found), 0);
}

TEST_F(MatrixCommand, WritesThePageThroughALinkThatStays) {
  const std::string page_file = base.file("states.html"), link = base.file("link.html");
  write_file(page_file, "older");
  ASSERT_EQ(symlink("states.html", link.c_str()), 0);
  ASSERT_EQ(matrix({"--html", link}).exit, 0);
  EXPECT_THAT(read_file(page_file), StartsWith("<!DOCTYPE html>\n"));
  struct stat found {};
  ASSERT_EQ(lstat(link.c_str(), &found), 0);
  EXPECT_TRUE(S_ISLNK(found.st_mode));
}

// Renamed over, the pipe would be gone; it takes the page itself.
TEST_F(MatrixCommand, ReplacesNothingThatIsNoPlainFile) {
  const std::string pipe = base.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  const tool_result result = matrix({"--html", pipe, "--targets", "NOBODY", "--files", "games.*.*.*"});
  EXPECT_EQ(result.exit, 0) << result.err;
  struct stat found {};
  ASSERT_EQ(lstat(pipe.c_str(), &found), 0);
  EXPECT_TRUE(S_ISFIFO(found.st_mode));
  char begin[15] = {};
  EXPECT_EQ(read(reader, begin, sizeof begin), ssize_t{sizeof begin});
  EXPECT_EQ(std::string(begin, sizeof begin), "<!DOCTYPE html>");
  close(reader);
}

TEST_F(MatrixCommand, PrintsThePageWhenItsNameIsAMinus) {
  const tool_result result = matrix({"--html", "-"});
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_THAT(result.out, StartsWith("<!DOCTYPE html>\n"));
  EXPECT_EQ(data_of(result.out)["targets"], zvradm::json({"BERGEN", "BODO", "OSLO"}));
  struct stat found {};
  EXPECT_NE(stat("-", &found), 0);
}

TEST_F(MatrixCommand, RefusesAPageWithoutAName) {
  const tool_result result = matrix({"--html", ""});
  EXPECT_EQ(result.exit, 2);
  EXPECT_THAT(result.err, HasSubstr("--html"));
  EXPECT_THAT(result.out, IsEmpty());
}

TEST_F(MatrixCommand, TellsWhyAPageCannotBeWritten) {
  const tool_result nowhere = matrix({"--html", base.file("nowhere/states.html")});
  EXPECT_EQ(nowhere.exit, 1);
  EXPECT_THAT(nowhere.err, HasSubstr("nowhere/states.html"));
  EXPECT_THAT(nowhere.err, HasSubstr("No such file or directory"));
  // Its last step fails: a folder has the page's name.
  const std::string folder = base.file("folder");
  ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
  const tool_result taken = matrix({"--html", folder});
  EXPECT_EQ(taken.exit, 1);
  EXPECT_THAT(taken.err, HasSubstr(folder + ": Is a directory"));
  struct stat found {};
  EXPECT_NE(stat((folder + ".new").c_str(), &found), 0) << "the unfinished page is left behind";
}

TEST_F(MatrixCommand, AFullDiskLeavesTheOlderPage) {
  struct stat found {};
  if (stat("/dev/full", &found) != 0) GTEST_SKIP() << "no /dev/full";
  const std::string page_file = base.file("states.html");
  write_file(page_file, "older");
  ASSERT_EQ(symlink("/dev/full", (page_file + ".new").c_str()), 0);
  const tool_result result = matrix({"--html", page_file});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("No space left on device"));
  EXPECT_EQ(read_file(page_file), "older");
}

// Two hundred targets and a thousand change files, in the time that a person waits.
TEST_F(MatrixCommand, HoldsALargeTable) {
  std::string records, pairs;
  for (int t = 100; t < 300; ++t)
    records += R"({"type":"trg","trg_name":"T)" + std::to_string(t) + R"(","trg_type":34})" "\n";
  for (int f = 1000; f < 2000; ++f) records += R"({"type":"cat","cf_name":["F","FIX",")" + std::to_string(f) + "\"]}\n";
  ASSERT_EQ(base.tool({"import", "-"}, records).exit, 0);
  for (int t = 100; t < 300; t += 10)
    pairs += pair("T" + std::to_string(t), R"("F","FIX",")" + std::to_string(1000 + 3 * t) + "\"", 9);
  ASSERT_EQ(base.tool({"cms", "import"}, pairs).exit, 0);
  const std::vector<std::string> lines = matrix({"--targets", "T", "--files", "F.*.*"}).lines();
  EXPECT_THAT(std::vector<std::string>(lines.end() - 3, lines.end()),
              ElementsAre("200 targets, 1000 change files", "   9  status 9: 20 pairs", "   .  no status: 199980 pairs"));
}

}  // namespace
