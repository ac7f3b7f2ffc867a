// The table of states, in text and as a page.
#include <gtest/gtest.h>

#include "matrix_page.h"
#include "matrix_text.h"
#include "record_json.h"

using namespace zvradm;

namespace {

status_matrix sample() {
  return {{"BERGEN", "OSLO"}, {"A.B", "A.C", "A.D"}, {1, no_status, default_status, 1, 7, no_status}};
}

// What the page's script would read.
json data_of(const std::string& page) {
  const std::string mark = "<script type=\"application/json\" id=\"data\">";
  const std::size_t from = page.find(mark) + mark.size();
  return json::parse(page.substr(from, page.find("</script>", from) - from));
}

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

}  // namespace

TEST(MatrixText, TellsEachStateUnderTheNumberOfItsChangeFile) {
  EXPECT_EQ(matrix_text(sample(), {}),
            "   1  A.B\n"
            "   2  A.C\n"
            "   3  A.D\n"
            "\n"
            "Target   1   2   3\n"
            "BERGEN   1   .   d\n"
            "OSLO     1   7   .\n"
            "\n"
            "2 targets, 3 change files\n"
            "   1  status 1: 2 pairs\n"
            "   7  status 7: 1 pair\n"
            "   .  no status: 2 pairs\n"
            "   d  default: 1 pair\n");
}

TEST(MatrixText, SplitsIntoBlocksThatFitTheWidth) {
  status_matrix matrix;
  matrix.targets = {"OSLO"};
  for (int f = 0; f < 30; ++f) matrix.files.push_back("F" + std::to_string(f));
  matrix.states.assign(30, 3);
  const std::string text = matrix_text(matrix, {.width = 46});
  EXPECT_EQ(occurrences(text, "\nTarget "), 3u);
  std::size_t from = 0;
  for (std::size_t to; (to = text.find('\n', from)) != std::string::npos; from = to + 1)
    EXPECT_LE(to - from, 46u);
  EXPECT_NE(text.find("  30  F29\n"), std::string::npos);
}

TEST(MatrixText, CutsALongTargetNameAtAWholeCharacter) {
  status_matrix matrix;
  std::string name;
  for (int i = 0; i < 20; ++i) name += "\xc3\xb8x";
  matrix.targets = {name};
  matrix.files = {"A"};
  matrix.states = {1};
  const std::string text = matrix_text(matrix, {});
  EXPECT_EQ(text.find("\xc3 "), std::string::npos);
  EXPECT_EQ(text.find("\xc3~"), std::string::npos);
  EXPECT_NE(text.find("~"), std::string::npos);
}

TEST(MatrixText, HasNoEscapesWithoutColours) {
  EXPECT_EQ(matrix_text(sample(), {}).find('\x1b'), std::string::npos);
  EXPECT_NE(matrix_text(sample(), {.width = 80, .colours = true}).find("\x1b[90md\x1b[0m"),
            std::string::npos);
}

TEST(MatrixText, OfNothingTellsThatThereIsNothing) {
  EXPECT_EQ(matrix_text({}, {}), "0 targets, 0 change files\n");
}

TEST(MatrixPage, HoldsEveryStateOfEveryPair) {
  const json data = data_of(matrix_page(sample(), "T", "today"));
  EXPECT_EQ(data["targets"], json({"BERGEN", "OSLO"}));
  EXPECT_EQ(data["files"], json({"A.B", "A.C", "A.D"}));
  EXPECT_EQ(data["states"], json({1, 7, 15, 128}));
  EXPECT_EQ(data["rows"], json({"ACD", "ABC"}));
  EXPECT_EQ(data["pairs"], json({2, 1, 2, 1}));
  EXPECT_EQ(data["width"], 1);
}

TEST(MatrixPage, WritesTwoSignsAPairWhenThereAreManyStates) {
  status_matrix matrix;
  matrix.targets = {"T"};
  for (int f = 0; f < 256; ++f) {
    matrix.files.push_back("F" + std::to_string(f));
    matrix.states.push_back(static_cast<std::uint8_t>(f));
  }
  const json data = data_of(matrix_page(matrix, "T", "today"));
  const std::string code = data["code"], row = data["rows"][0];
  ASSERT_EQ(data["width"], 2);
  ASSERT_EQ(row.size(), 512u);
  for (std::size_t f = 0; f < 256; ++f)
    EXPECT_EQ(data["states"][code.find(row[2 * f]) + 64 * code.find(row[2 * f + 1])], f);
}

TEST(MatrixPage, LetsNoNameBreakOut) {
  const std::string evil = "</script><img src=x onerror=alert(1)>&\"'\xff";
  status_matrix matrix = sample();
  matrix.targets[0] = evil;
  matrix.files[0] = evil;
  const std::string page = matrix_page(matrix, evil, evil);
  EXPECT_EQ(page.find("<img"), std::string::npos);
  EXPECT_EQ(occurrences(page, "<script"), 2u);
  EXPECT_EQ(occurrences(page, "</script>"), 2u);
  EXPECT_EQ(data_of(page)["targets"][0], "</script><img src=x onerror=alert(1)>&\"'\xef\xbf\xbd");
}

TEST(MatrixPage, NeedsNothingFromElsewhere) {
  const std::string page = matrix_page(sample(), "T", "today");
  for (const char* part : {"http:", "https:", "src=", "url(", "@import", "<link"})
    EXPECT_EQ(page.find(part), std::string::npos) << part;
}

TEST(MatrixPage, OfThreeHundredTargetsAndTwoThousandFilesStaysSmall) {
  status_matrix matrix;
  for (int t = 0; t < 300; ++t) matrix.targets.push_back("target-" + std::to_string(t));
  for (int f = 0; f < 2000; ++f) matrix.files.push_back("libs.package" + std::to_string(f) + ".FIX.1");
  matrix.states.assign(600000, no_status);
  EXPECT_LT(matrix_page(matrix, "T", "today").size(), 800000u);
}
