// Writers of targets, killed again and again: a put is four write operations.
#pragma once

#include <string>

#include "targets/killed_writers.h"
#include "targets/targets_fixture.h"

namespace target_test {

class TargetWriters : public TargetsTest, public KilledWriters {
 protected:
  std::string written_file() override { return installation_->path("db/trgcfg"); }

  // The version of a target that bears it as description and as customer's name, 0 when
  // there is no such target.  Memory and file must agree on it.
  std::uint32_t stored_version(const std::string& name) {
    const Reading whole = get(name);
    const Reading head = get(name, 192);
    EXPECT_EQ(whole.rc, head.rc) << "memory and file of " << name;
    if (whole.rc == DBE_NOT_FOUND) return 0;
    EXPECT_EQ(whole.rc, DBE_OK);
    EXPECT_EQ(whole.record.text_at(64, 60), head.record.text_at(64, 60)) << "memory and file of " << name;
    EXPECT_EQ(whole.record.text_at(64, 60), whole.record.text_at(288, 60)) << "half a record of " << name;
    return static_cast<std::uint32_t>(std::stoul(std::string(whole.record.text_at(64, 60))));
  }
};

}  // namespace target_test
