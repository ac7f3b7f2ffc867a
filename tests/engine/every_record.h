// All records of an open file, in the order of their names.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "engine/engine_handle.h"
#include "engine/sample_files.h"

namespace zvrdb::test {

using records = std::map<std::string, sample_record>;

inline records all_records(handle* h) {
  records result;
  for (int found = engine::dseq(*h, 1, engine::seq_first); found == 0; found = engine::dseq(*h, 1, engine::seq_next)) {
    sample_record r;
    EXPECT_EQ(h->read(&r), 0);
    result[r.name] = r;
  }
  return result;
}

}  // namespace zvrdb::test
