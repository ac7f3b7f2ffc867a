// Several processes change the catalog at once while they are killed: what was answered
// as done is there, what was under way is there whole or not at all, and no number is
// given twice.
#include <cstring>

#include "catalog/catalog_fixture.h"
#include "targets/killed_writers.h"

namespace catalog_test {
namespace {

using target_test::StoredVersion;

constexpr unsigned cells = 12;

std::string name_of(unsigned writer, unsigned cell) {
  return numbered("W", writer) + numbered(".", cell);
}

CatRecord version_of(const std::string& name, std::uint32_t version) {
  CatRecord record(name);
  record.text(std::to_string(version));
  const std::string text = std::to_string(version);
  std::memcpy(record.bytes.data() + 364, text.data(), text.size());
  return record;
}

class CatalogProcesses : public CatalogTest, public target_test::KilledWriters {
 protected:
  struct Shared {
    StoredVersion cell[writers][cells];   // of each name: what its text tells
  };

  std::string written_file() override { return installation_->path("db/catalog"); }

  bool step(void* own, unsigned writer, std::mt19937& random) override {
    const auto at = static_cast<unsigned>(random() % cells);
    StoredVersion& cell = shared->cell[writer][at];
    const std::string name = name_of(writer, at);
    const std::uint32_t old = cell.done;
    const std::uint32_t next = random() % 3 == 0 ? 0 : static_cast<std::uint32_t>(random() | 1u);
    cell.under_way = next;
    if (next == 0) {
      const int rc = answer_in_the_end([&] { return del_on(own, name); });
      if (!expect(rc, old ? DBE_OK : DBE_NOT_FOUND, 1)) return false;
    } else {
      const int rc = answer_in_the_end([&] { return put_on(own, version_of(name, next)); });
      if (!expect(rc, old ? DBE_RECORD_REPLACED : DBE_OK, 2)) return false;
    }
    cell.done = next;
    return true;
  }

  std::uint32_t stored_version(const std::string& name) {
    const CatReading whole = get_cf(name);
    const CatReading head = get_cf(name, head_len);
    EXPECT_EQ(whole.rc, head.rc) << "memory and file of " << name;
    if (whole.rc == DBE_NOT_FOUND) return 0;
    EXPECT_EQ(whole.rc, DBE_OK);
    EXPECT_EQ(whole.record.text(), head.record.text()) << "memory and file of " << name;
    EXPECT_STREQ(whole.record.text().c_str(), reinterpret_cast<const char*>(whole.record.bytes.data()) + 364)
        << "half a record of " << name;
    return static_cast<std::uint32_t>(std::stoul(whole.record.text()));
  }

  void check_dead_writer(unsigned writer) override {
    for (unsigned at = 0; at < cells; ++at) {
      const std::string name = name_of(writer, at);
      shared->cell[writer][at].settle(stored_version(name), name);
    }
  }

  Shared* shared = share<Shared>();
};

TEST_F(CatalogProcesses, WhatWasAnsweredAsDoneSurvivesTheDeathOfAWriterBetweenWriteOperations) {
  run_and_kill({.kills = 12, .fewest_steps = 5, .most_steps = 24});
  for (unsigned w = 0; w < writers; ++w)
    for (unsigned at = 0; at < cells; ++at)
      EXPECT_EQ(stored_version(name_of(w, at)), shared->cell[w][at].done) << name_of(w, at);
  expect_agreement();
}

}  // namespace
}  // namespace catalog_test
