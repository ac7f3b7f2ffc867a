// put, get, del and list of change files, products and filesets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class CatalogCommands : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(base.init().exit, 0); }
  void put(const std::string& type, const std::string& lines) {
    const tool_result result = base.tool({"put", type}, lines);
    ASSERT_EQ(result.exit, 0) << result.err;
  }
  // Dotted names of a list of change files.
  std::vector<std::string> names(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), {"list", "cat", "--names", "--table"});
    std::vector<std::string> all = base.tool(arguments).lines();
    if (!all.empty()) all.erase(all.begin());
    return all;
  }
  scratch_base base;
};

constexpr const char* some_files = R"({"cf_name":["DEB","libc6","FIX","2.36-9"],"text102":"The C library"})" "\n"
                                   R"({"cf_name":["DEB","zlib","FIX","1"]})" "\n"
                                   R"({"cf_name":["DEB","zlib","REF","1"]})" "\n"
                                   R"({"cf_name":["DEB"]})" "\n"
                                   R"({"cf_name":["RPM","zlib","FIX","1"]})" "\n";

TEST_F(CatalogCommands, EveryFieldOfAChangeFileComesBack) {
  const std::string line =
      R"({"cf_name":["DEB","libc6","FIX","2.36-9"],"carried76":4294967295,"carried80":"01020304","carried84":65535,)"
      R"("carried86":"0506","carried88":7,"carried90":8,"carried91":9,"carried92":"0a0b0c0d0e0f10111213",)"
      R"("text102":"The C library","text346":"abc","carried350":1,"carried352":2,"carried354":"0304",)"
      R"("carried356":5,"cf_flags":32,"carried361":"060708","lines":["one","","three"],)"
      R"("carried2412":"090a","carried2462":255})" "\n";
  put("cat", line);
  EXPECT_EQ(base.tool({"get", "cat", R"(DEB.libc6.FIX.2\.36-9)"}).out, line);
}

TEST_F(CatalogCommands, TheHeadOfAChangeFileComesFromMemory) {
  put("cat", some_files);
  const auto head = base.tool({"get", "cat", R"(DEB.libc6.FIX.2\.36-9)", "--len", "164"}).json();
  EXPECT_TRUE(head.contains("carried92"));
  EXPECT_FALSE(head.contains("text102"));
  EXPECT_EQ(base.tool({"get", "cat", "DEB", "--len", "76"}).out, "{\"cf_name\":[\"DEB\"]}\n");
}

TEST_F(CatalogCommands, ASecondPutReplacesAndUpdateKeepsTheRest) {
  put("cat", R"({"cf_name":["A"],"text102":"first","carried76":1})");
  EXPECT_EQ(base.tool({"put", "cat", "--update"}, R"({"cf_name":["A"],"carried76":2})").json()["rc"], 8196);
  const auto record = base.tool({"get", "cat", "A"}).json();
  EXPECT_EQ(record["text102"], "first");
  EXPECT_EQ(record["carried76"], 2);
}

TEST_F(CatalogCommands, ANameThatDoesNotFitIsToldWithItsLine) {
  const std::string too_long(65, 'x');
  const tool_result result = base.tool({"put", "cat"}, "{\"cf_name\":[\"A\"]}\n{\"cf_name\":[\"" + too_long + "\"]}\n"
                                                       R"({"cf_name":["1","2","3","4","5","6","7","8","9","10","11","12"]})");
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("line 2: cf_name: change file \"" + too_long + "\" takes 66 bytes, at most 65"));
  EXPECT_THAT(result.err, HasSubstr("line 3: cf_name: change file \"1.2.3.4.5.6.7.8.9.10.11.12\" has 12 tokens, at most 11"));
  const tool_result asked = base.tool({"get", "cat", too_long});
  EXPECT_EQ(asked.exit, 2);
  EXPECT_THAT(asked.err, HasSubstr("takes 66 bytes"));
}

TEST_F(CatalogCommands, AnUnknownChangeFileIsTold) {
  for (const char* verb : {"get", "del"}) {
    const tool_result result = base.tool({verb, "cat", "A.B"});
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.err, HasSubstr(std::string(verb) + " cat \"A.B\": DBE_NOT_FOUND (8194)"));
  }
}

TEST_F(CatalogCommands, ListsAreInTheOrderOfNames) {
  put("cat", some_files);
  EXPECT_THAT(names(), ElementsAre("DEB", R"(DEB.libc6.FIX.2\.36-9)", "DEB.zlib.FIX.1", "DEB.zlib.REF.1", "RPM.zlib.FIX.1"));
  const tool_result lines = base.tool({"list", "cat", "--names"});
  EXPECT_THAT(lines.lines(), testing::Contains(R"({"cf_name":["DEB","libc6","FIX","2.36-9"]})"));
}

TEST_F(CatalogCommands, AFilterTakesWildcardsInItsTokens) {
  put("cat", some_files);
  EXPECT_THAT(names({"--filter", "DEB.*.FIX.*"}), ElementsAre(R"(DEB.libc6.FIX.2\.36-9)", "DEB.zlib.FIX.1"));
  EXPECT_THAT(names({"--filter", "*.zlib.*.?"}), ElementsAre("DEB.zlib.FIX.1", "DEB.zlib.REF.1", "RPM.zlib.FIX.1"));
  EXPECT_THAT(names({"--filter", "DEB.*"}), ElementsAre("DEB"));
  EXPECT_THAT(names({"--filter", R"(DEB.libc6.FIX.2\.36-9)"}), ElementsAre(R"(DEB.libc6.FIX.2\.36-9)"));
  EXPECT_THAT(names({"--filter", "X.*"}), IsEmpty());
  EXPECT_EQ(base.tool({"list", "cat", "--filter", "X.*"}).exit, 0);
}

TEST_F(CatalogCommands, NamesOfAllElevenTokensAreListed) {
  put("cat", R"({"cf_name":["a","b","c","d","e","f","g","h","i","j","k"]})" "\n" R"({"cf_name":["a"]})");
  EXPECT_THAT(names(), ElementsAre("a", "a.b.c.d.e.f.g.h.i.j.k"));
}

TEST_F(CatalogCommands, TheTableOfAListHasTheColumnsThatItsLengthHolds) {
  put("cat", some_files);
  const auto short_table = base.tool({"list", "cat", "--table"}).lines();
  ASSERT_EQ(short_table.size(), 6u);
  EXPECT_THAT(short_table[0], testing::StartsWith("cf_name"));
  EXPECT_EQ(short_table[0].find("text102"), std::string::npos);
  const tool_result long_table = base.tool({"list", "cat", "--table", "--len", "2464"});
  EXPECT_THAT(long_table.out, HasSubstr("The C library"));
}

// More entries than the first list area holds, and more change files than the tables
// have room for at first.
TEST_F(CatalogCommands, AListGrowsWithTheCatalog) {
  std::string lines;
  for (int i = 10000; i < 14200; ++i) lines += "{\"type\":\"cat\",\"cf_name\":[\"F" + std::to_string(i) + "\"]}\n";
  const tool_result imported = base.tool({"import", "-"}, lines);
  ASSERT_EQ(imported.exit, 0) << imported.err;
  const auto listed = names();
  ASSERT_EQ(listed.size(), 4200u);
  EXPECT_EQ(listed.front(), "F10000");
  EXPECT_EQ(listed.back(), "F14199");
  EXPECT_EQ(names({"--filter", "F13?99"}).size(), 10u);
  const auto status = base.tool({"status", "--json"}).json();
  EXPECT_EQ(status["change_files"]["actual"], 4200);
  EXPECT_EQ(status["change_files"]["numbers"], 4200);
  EXPECT_GT(status["change_files"]["allowed"], 4200);
}

TEST_F(CatalogCommands, StatusTellsChangeFilesAndTheirNumbers) {
  put("cat", some_files);
  ASSERT_EQ(base.tool({"del", "cat", "DEB"}).exit, 0);
  const auto files = base.tool({"status", "--json"}).json()["change_files"];
  EXPECT_EQ(files["actual"], 4);
  EXPECT_EQ(files["numbers"], 5);
  EXPECT_EQ(files["limit"], 65535);
  EXPECT_THAT(base.tool({"status"}).out, HasSubstr("5 given out, 1 of them free; at most 65535"));
}

constexpr const char* some_products = R"({"cf_name":["DEB"],"product_id":9,"text80":"nine","carried680":3})" "\n"
                                      R"({"cf_name":["DEB"],"product_id":7,"text80":"a","text225":"b","text290":"c","text355":"d","text420":"e"})" "\n"
                                      R"({"cf_name":["DEB","zlib","FIX","1"],"product_id":0})" "\n";
constexpr const char* some_filesets = R"({"cf_name":["DEB"],"product_id":9,"fileset_id":1})" "\n"
                                      R"({"cf_name":["DEB"],"product_id":7,"fileset_id":65535,"text80":"a","text225":"b","text290":"c"})" "\n"
                                      R"({"cf_name":["DEB"],"product_id":7,"fileset_id":2})" "\n";

TEST_F(CatalogCommands, ProductsAndFilesetsComeAndGo) {
  put("cat", some_files);
  put("prd", some_products);
  put("fst", some_filesets);
  EXPECT_EQ(base.tool({"get", "prd", "DEB", "7"}).out,
            R"({"cf_name":["DEB"],"product_id":7,"text80":"a","text225":"b","text290":"c","text355":"d","text420":"e","carried680":0})" "\n");
  EXPECT_EQ(base.tool({"get", "fst", "DEB", "7", "65535"}).out,
            R"({"cf_name":["DEB"],"product_id":7,"fileset_id":65535,"text80":"a","text225":"b","text290":"c"})" "\n");
  ASSERT_EQ(base.tool({"del", "fst", "DEB", "7", "65535"}).exit, 0);
  EXPECT_EQ(base.tool({"get", "fst", "DEB", "7", "65535"}).exit, 1);
  ASSERT_EQ(base.tool({"del", "prd", "DEB", "7"}).exit, 0);
  EXPECT_EQ(base.tool({"list", "prd", "DEB"}).lines().size(), 1u);
}

TEST_F(CatalogCommands, ProductsAndFilesetsAreListedOfOneChangeFile) {
  put("cat", some_files);
  put("prd", some_products);
  put("fst", some_filesets);
  const auto products = base.tool({"list", "prd", "DEB"}).lines();
  ASSERT_EQ(products.size(), 2u);
  EXPECT_EQ(zvradm::json::parse(products[0])["product_id"], 7);
  EXPECT_EQ(zvradm::json::parse(products[1])["product_id"], 9);
  EXPECT_EQ(base.tool({"list", "fst", "DEB"}).lines().size(), 3u);
  EXPECT_EQ(base.tool({"list", "fst", "DEB", "--product", "0"}).lines().size(), 3u);
  EXPECT_EQ(base.tool({"list", "fst", "DEB", "--product", "7"}).lines().size(), 2u);
  EXPECT_THAT(base.tool({"list", "fst", "DEB", "--table"}).out, HasSubstr("DEB"));
  EXPECT_EQ(base.tool({"list", "prd", "RPM.zlib.FIX.1"}).out, "");
  EXPECT_THAT(base.tool({"list", "prd", "NOBODY"}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
  EXPECT_THAT(base.tool({"list", "prd", "D*"}).err, HasSubstr("DBE_EMPTY_LIST (8217)"));
}

TEST_F(CatalogCommands, AProductNeedsItsNumberAndAKnownChangeFile) {
  put("cat", some_files);
  const tool_result result = base.tool({"put", "prd"}, R"({"cf_name":["DEB"]})" "\n" R"({"cf_name":["X"],"product_id":1})");
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("line 1: product_id: is missing"));
  EXPECT_THAT(result.err, HasSubstr("line 2: put prd \"X\" \"1\": DBE_NOT_FOUND (8194)"));
}

TEST_F(CatalogCommands, ADeletedChangeFileTakesItsProductsAlong) {
  put("cat", some_files);
  put("prd", some_products);
  put("fst", some_filesets);
  ASSERT_EQ(base.tool({"del", "cat", "DEB"}).exit, 0);
  put("cat", R"({"cf_name":["NEW"]})");  // gets the number of the one that went
  EXPECT_EQ(base.tool({"list", "prd", "NEW"}).out, "");
  EXPECT_EQ(base.tool({"list", "fst", "NEW"}).out, "");
}

}  // namespace
