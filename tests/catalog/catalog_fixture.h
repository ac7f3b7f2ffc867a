// An installation with the exported calls on change files in short form.  After each
// test the in-memory tables of targets and of change files must hold together.
#pragma once

#include <zvrdb/records.h>

#include <functional>
#include <string>
#include <vector>

#include "memory/shared_tables.h"
#include "support/cf_names.h"
#include "targets/targets_fixture.h"

namespace catalog_test {

using target_test::numbered;
using zvrtest::cf;
using zvrtest::CfName;

inline constexpr std::size_t record_len = 2464;
inline constexpr std::size_t head_len = 164;

// A catalog record as a client builds it.
struct CatRecord {
  explicit CatRecord(const CfName& name);
  explicit CatRecord(const std::string& dotted) : CatRecord(cf(dotted)) {}
  CfName name() const;
  // The text at 102, in the head, and the last byte of the record.
  CatRecord& text(const std::string& value);
  std::string text() const;
  CatRecord& last_byte(unsigned value);
  unsigned last_byte() const { return bytes[2462]; }

  std::vector<unsigned char> bytes;
};

struct CatReading {
  int rc;
  CatRecord record;
};

// A list of entries as db_start_list makes them.
struct ListEntry {
  std::uint16_t dist_idx;
  std::uint8_t name_diff;
  std::uint8_t cf_gen;
};
static_assert(sizeof(ListEntry) == 4);

// On any task: put and del of a change file by its dotted name.
int put_on(void* task, const CatRecord& record, std::size_t length = record_len);
int put_on(void* task, const std::string& dotted);
int del_on(void* task, const std::string& dotted);
int get_on(void* task, const std::string& dotted, std::size_t length = head_len);

class CatalogTest : public target_test::TargetsTest {
 protected:
  void TearDown() override;

  int put_cf(const CatRecord& record, std::size_t length = record_len) {
    return put_on(task, record, length);
  }
  int put_cf(const std::string& dotted) { return put_on(task, dotted); }
  int del_cf(const std::string& dotted) { return del_on(task, dotted); }
  CatReading get_cf(const CfName& name, std::size_t length = record_len);
  CatReading get_cf(const std::string& dotted, std::size_t length = record_len) {
    return get_cf(cf(dotted), length);
  }
  // -1 when there is none.
  int number_of(const std::string& dotted);
  int number_of(const CfName& name);
  // Names in order of the index, tokens joined with dots.
  std::vector<std::string> all_names();
  std::vector<unsigned> differences();
  // The entry of this name as a list made now would hold it.
  ListEntry listed(const std::string& dotted);
  int next_rc(const ListEntry& entry, std::size_t length = head_len, CatRecord* record = nullptr);

  // Runs the body inside the frame, as a handler of a write does.
  int framed(const std::function<int()>& body);
  // A product (26) or fileset (27), straight into the file.
  int store_part(std::uint32_t db_id, unsigned number, unsigned product, unsigned fileset = 0);
  // How many products and filesets the file has for a number.
  int parts_of(unsigned number);
  // A record of the catalog file, whatever the tables say of its number.
  int store_raw(unsigned number, const CatRecord& record);
  int remove_raw(unsigned number);

  zvrdb::DIST_CAT_ENTRY& cat_slot(unsigned number) { return tcb()->dist_cat[number]; }
  // What the tables show, to be compared with what a rebuild makes of the file.
  std::vector<std::string> table_lines();
  // Memory shows what the file holds.
  void expect_agreement();
  void expect_catalog_sound();
};

}  // namespace catalog_test
