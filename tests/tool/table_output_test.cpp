#include "table_output.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>

namespace {

using namespace zvradm;

class TableOutput : public testing::Test {
 protected:
  void SetUp() override { std::setlocale(LC_CTYPE, "C.UTF-8"); }
  static std::string printed(const table& t) {
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* out = open_memstream(&text, &length);
    print_table(t, out);
    std::fclose(out);
    std::string result(text, length);
    std::free(text);
    return result;
  }
};

TEST_F(TableOutput, ColumnsAreAlignedByWhatATerminalShows) {
  const table t{{"name", "n"}, {{"Åse", "1"}, {"東京", "22"}, {"x", "333"}}, {false, true}};
  EXPECT_EQ(printed(t),
            "name    n\n"
            "Åse     1\n"
            "東京   22\n"
            "x     333\n");
}

TEST_F(TableOutput, NothingThatATerminalActsUponIsPrinted) {
  const table t{{"a"}, {{"x\x1b[2Jy\n"}, {"\xFFz"}}, {}};
  EXPECT_EQ(printed(t), "a\nx?[2Jy?\n?z\n");
}

}  // namespace
