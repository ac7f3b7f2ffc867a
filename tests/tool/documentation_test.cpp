// What the pages tell must be what there is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zvrdb/zvrdb.h>

#include "record_fields.h"
#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::HasSubstr;

std::string page(const char* name) {
  const std::string text = read_file(std::string(ZVR_DOCS) + "/" + name);
  EXPECT_NE(text, "") << name;
  return text;
}

TEST(Documentation, TheManualPageTellsEveryCommand) {
  const std::string manual = page("man/zvradm.1");
  for (const char* command : {"init",
                              "status",
                              "reset",
                              "trace on",
                              "edit",
                              "check\\-config",
                              "put",
                              "get",
                              "del",
                              "list",
                              "rename\\-target",
                              "target\\-status get",
                              "target\\-by\\-rr",
                              "server\\-of",
                              "auth",
                              "request\\-tree show",
                              "request\\-tree del",
                              "last\\-request",
                              "correlator of",
                              "request of",
                              "export",
                              "import",
                              "cms put",
                              "cms get",
                              "cms del\\fR",
                              "cms del\\-file",
                              "cms by\\-file",
                              "cms by\\-target",
                              "cms import",
                              "matrix",
                              "migrate",
                              "journal",
                              "file check",
                              "file dump",
                              "file summary",
                              "file hold"})
    EXPECT_THAT(manual, HasSubstr("\\fB" + std::string(command))) << command;
}

TEST(Documentation, TheManualPageTellsEveryRecordType) {
  const std::string manual = page("man/zvradm.1");
  for (const zvradm::record_type& type : zvradm::record_types())
    EXPECT_TRUE(manual.find(std::string("\n.B ") + type.suffix + "\n") != std::string::npos ||
                manual.find(std::string(" ") + type.suffix + " \"") != std::string::npos ||
                manual.find(std::string(" ") + type.suffix + "\n") != std::string::npos)
        << type.suffix;
}

TEST(Documentation, TheRecordsPageTellsEveryTypeAndField) {
  const std::string records = page("records.md");
  for (const zvradm::record_type& type : zvradm::record_types()) {
    EXPECT_THAT(records, HasSubstr("| `" + std::string(type.suffix) + "` | " + std::to_string(type.db_id)));
    if (type.db_id == DB_CFG) continue;  // told by the rule that makes its names
    for (const zvradm::field& f : type.fields)
      EXPECT_THAT(records, HasSubstr("`" + std::string(f.name) + "`"));
  }
}

TEST(Documentation, TheHelpOfTheRecordCommandsTellsEveryType) {
  for (const zvradm::record_type& type : zvradm::record_types()) {
    const std::string suffix = type.suffix;
    EXPECT_THAT(run_tool({"get", "--help"}).out, HasSubstr(suffix));
    if (type.storable()) {
      EXPECT_THAT(run_tool({"put", "--help"}).out, HasSubstr(suffix));
    }
  }
}

TEST(Documentation, TheRecordsPageTellsEveryWordOfATarget) {
  const std::string records = page("records.md");
  for (const auto& words : {zvradm::target_types(), zvradm::target_modes(), zvradm::target_systems()})
    for (const zvradm::word& w : words)
      EXPECT_THAT(records, HasSubstr(std::to_string(w.value) + " `" + w.text + "`"));
}

}  // namespace
