// Record files that the tests share: one field list, with a key of each kind.
#pragma once

#include <string>
#include <vector>

#include "engine/engine.h"
#include "engine/file_report.h"
#include "engine/independent_writer.h"

namespace zvrdb::test {

// Field list of the samples:
//   0 'B' key 1, bytes, unique        3 'H' key 4, 16-bit, duplicates
//   1 'S' key 2, string, duplicates   4 'D' key 5, double, duplicates
//   2 'L' key 3, 32-bit, duplicates   5 'B' no key: the payload
struct sample_record {
  std::string name;        // key 1, at most 60 bytes
  std::string group;       // key 2, at most 30 characters
  std::int32_t number = 0; // key 3
  std::int16_t small = 0;  // key 4
  double weight = 0;       // key 5
  std::string payload;     // at most 8000 bytes
  bool operator==(const sample_record&) const = default;
};

const std::map<int, int>& sample_key_types();
const engine::key_entry* sample_key_table();
sample_record sample(int i, std::size_t payload = 20);
std::vector<record_field> written_fields(bool big_endian, const sample_record& record);

// Records 1 to count in a file of small nodes; every 40th has a body of many pieces.
file_recipe sample_recipe(bool big_endian, int records, int leaf_limit = 1006, int inner_limit = 1006);

// The field list as the engine takes it, with buffers of its own.
struct sample_fields {
  sample_fields();
  explicit sample_fields(const sample_record& record);
  sample_fields(const sample_fields&) = delete;
  sample_fields& operator=(const sample_fields&) = delete;
  sample_record record() const;
  engine::field list[7];

 private:
  unsigned char name_[256];
  char group_[64];
  std::int32_t number_;
  std::int16_t small_;
  double weight_;
  unsigned char payload_[16384];
};

struct check_result {
  engine::report_outcome outcome;
  std::string reason;
  std::vector<engine::problem> problems;   // without the notes
  std::vector<engine::problem> notes;
  std::string text() const;                // all problems, a line each
};
check_result check_file(const std::string& path, bool deep);

}  // namespace zvrdb::test
