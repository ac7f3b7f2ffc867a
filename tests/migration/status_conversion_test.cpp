// The stage of CM status: states, both sides, chunks, damage.
#include <cstring>
#include <filesystem>

#include "migration/migration_fixture.h"
#include "migration/status_files.h"

using namespace migration_test;

namespace {

constexpr int not_reached = -1;

using Body = std::vector<unsigned char>;
Body bytes(const std::string& text) {
  return {text.begin(), text.end()};
}
Body pairs(std::initializer_list<std::pair<std::uint32_t, std::uint32_t>> list) {
  Body body;
  for (const auto& [target, status] : list) {
    const std::uint32_t word = target << 8 | status;
    unsigned char raw[4];
    std::memcpy(raw, &word, sizeof raw);
    body.insert(body.end(), raw, raw + 4);
  }
  return body;
}

class StatusConversion : public MigrationTest {
 protected:
  StatusConversion() {
    std::vector<std::string> entries;
    for (int i = 0; i < 4; ++i) entries.push_back(catalog_entry("CF." + std::to_string(i)));
    db_.catalog(entries);
    for (const char* name : {"A", "B"}) {
      db_.target(name, {.rgn = "N", .ren = name});
      db_.status(name, "");
    }
  }
  ~StatusConversion() override { zvrdb::migration::set_gathered_pairs(4u << 20); }
  int convert() {
    what_ = {};
    migrate(&what_);
    return what_.ends.size() > 2 ? what_.ends[2] : not_reached;
  }
  void rename(const char* from, const char* to) {
    std::filesystem::rename(installation_->path(from), installation_->path(to));
  }
  heard what_;
};

TEST_F(StatusConversion, EachPairIsStoredOnBothSides) {
  const std::string a = status_entry(0, 5, "of A") + status_entry(2, 6);
  const std::string b = status_entry(2, 7) + status_entry(65535, 9) + status_entry(3, 8);
  db_.status("A", a);
  db_.status("B", b);
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(bytes(a), status_body(1, 1));
  EXPECT_EQ(bytes(b), status_body(1, 2));
  EXPECT_EQ(pairs({{1, 5}}), status_body(2, 0));
  EXPECT_EQ(Body{}, status_body(2, 1));
  EXPECT_EQ(pairs({{1, 6}, {2, 7}}), status_body(2, 2));
  EXPECT_EQ(pairs({{2, 8}}), status_body(2, 3));
  EXPECT_EQ(4u, what_.counts["2 pairs"]);
  EXPECT_EQ(3u, what_.counts["2 change files"]);
  EXPECT_FALSE(db_.there("db/cm_status.old"));
  EXPECT_FALSE(db_.there("db/cm_status.old.done"));
}

TEST_F(StatusConversion, AChangeFileListedTwiceKeepsItsLastStatus) {
  db_.status("A", status_entry(1, 5) + status_entry(1, 6));
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(pairs({{1, 6}}), status_body(2, 1));
}

TEST_F(StatusConversion, WhatIsGatheredInPortionsIsTheSame) {
  db_.status("A", status_entry(0, 1) + status_entry(1, 2) + status_entry(2, 3) + status_entry(3, 4));
  db_.status("B", status_entry(3, 5) + status_entry(0, 6));
  zvrdb::migration::set_gathered_pairs(1);
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(pairs({{1, 1}, {2, 6}}), status_body(2, 0));
  EXPECT_EQ(pairs({{1, 2}}), status_body(2, 1));
  EXPECT_EQ(pairs({{1, 4}, {2, 5}}), status_body(2, 3));
}

TEST_F(StatusConversion, OfMoreThanAChunkTheTargetKeepsTheLastAndChangeFilesAll) {
  std::string entries = status_entry(0, 1);
  for (int i = 1; i < 1024; ++i) entries += status_entry(65535, 0);
  const std::string last = status_entry(1, 2) + status_entry(2, 3);
  db_.status("A", entries + last);
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(bytes(last), status_body(1, 1));
  EXPECT_EQ(pairs({{1, 1}}), status_body(2, 0));
  EXPECT_EQ(pairs({{1, 3}}), status_body(2, 2));
}

TEST_F(StatusConversion, OfExactlyAChunkTheTargetsSideIsEmpty) {
  std::string entries = status_entry(0, 1);
  for (int i = 1; i < 1024; ++i) entries += status_entry(65535, 0);
  ASSERT_EQ(38912u, entries.size());
  db_.status("A", entries);
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(Body{}, status_body(1, 1));
  EXPECT_EQ(pairs({{1, 1}}), status_body(2, 0));
}

TEST_F(StatusConversion, APartOfAnEntryAtTheEndIsNoEntry) {
  const std::string entries = status_entry(0, 1) + status_entry(1, 2).substr(0, 37);
  db_.status("A", entries);
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(bytes(entries), status_body(1, 1));
  EXPECT_EQ(Body{}, status_body(2, 1));
}

TEST_F(StatusConversion, ANumberJustBehindTheCatalogIsLetPassAndOneMoreIsNot) {
  db_.status("A", status_entry(4, 1));
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(pairs({{1, 1}}), status_body(2, 4));
  EXPECT_EQ(0u, logged(36391));
}

TEST_F(StatusConversion, ANumberBeyondTheCatalogEndsTheStageWithItsMessage) {
  db_.status("A", status_entry(5, 1));
  EXPECT_EQ(DBE_IO_ERROR, convert());
  EXPECT_EQ(1u, logged(36391));
  EXPECT_EQ((std::vector<std::uint32_t>{36391}), what_.messages);
  EXPECT_TRUE(db_.there("db/cm_status.old/A"));
}

TEST_F(StatusConversion, ATargetWithoutAFileEndsTheStage) {
  std::filesystem::remove(installation_->path("db/cm_status/B"));
  EXPECT_EQ(DBE_IO_ERROR, convert());
  EXPECT_TRUE(what_.noted("has no file for target B"));
  new_task();
  db_.file("db/cm_status.old/B", status_entry(0, 3));
  EXPECT_EQ(DBE_OK, convert());
  EXPECT_EQ(pairs({{2, 3}}), status_body(2, 0));
}

TEST_F(StatusConversion, AFileOfAnotherCaseIsTheTargets) {
  rename("db/cm_status/A", "db/cm_status/a");
  db_.status("a", status_entry(0, 1));
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(pairs({{1, 1}}), status_body(2, 0));
}

TEST_F(StatusConversion, AFileOfNoTargetIsToldAndPassedOver) {
  db_.status("STRANGER", status_entry(0, 1));
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_TRUE(what_.noted("STRANGER is of no target"));
  EXPECT_EQ(Body{}, status_body(2, 0));
}

// ---- States

TEST_F(StatusConversion, WithNeitherDirectoryNorFileItFails) {
  std::filesystem::remove_all(installation_->path("db/cm_status"));
  EXPECT_EQ(DBE_IO_ERROR, convert());
}

TEST_F(StatusConversion, WithTheNewFileAloneThereIsNothingToDo) {
  ASSERT_EQ(DBE_OK, convert());
  new_task();
  EXPECT_EQ(DBE_OK, convert());
  EXPECT_EQ("2 converted", what_.begins.at(2));
}

TEST_F(StatusConversion, OfBothTheNewOneIsMadeAnewUnderWhicheverNameItIsThere) {
  db_.status("A", status_entry(0, 1));
  db_.file("db/cm_status.new", "a begin");
  db_.file("db/cmstatus", "another begin");
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(pairs({{1, 1}}), status_body(2, 0));
  EXPECT_FALSE(db_.there("db/cm_status.new"));
}

TEST_F(StatusConversion, GoesOnFromTheRenamedDirectory) {
  db_.status("A", status_entry(0, 1));
  rename("db/cm_status", "db/cm_status.old");
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ("2 conversion was cut short, begins anew", what_.begins.at(2));
  EXPECT_EQ(pairs({{1, 1}}), status_body(2, 0));
}

TEST_F(StatusConversion, WhatIsConvertedIsOnlyTidiedUp) {
  db_.status("A", status_entry(0, 1));
  ASSERT_EQ(DBE_OK, convert());
  new_task();
  db_.file("db/cm_status.old.done/B", "what a kill left");
  EXPECT_EQ(DBE_OK, convert());
  EXPECT_FALSE(db_.there("db/cm_status.old.done"));
  EXPECT_EQ(pairs({{1, 1}}), status_body(2, 0));
}

TEST_F(StatusConversion, TheNamesOfAConvertedFileOfTargetsServeTheStageToo) {
  db_.status("A", status_entry(0, 1));
  rename("db/cm_status", "db/kept");
  EXPECT_EQ(DBE_IO_ERROR, convert());  // catalog and targets are converted
  new_task();
  rename("db/kept", "db/cm_status");
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ("1 converted", what_.begins.at(1));
  EXPECT_EQ(pairs({{1, 1}}), status_body(2, 0));
}

}  // namespace
