// Keyed access on real record files: a task with the nine files open and a table of
// targets in plain memory ("T1" to "T9", numbers 1 to 9), without the request frame.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "keyed/conversion_fixture.h"
#include "memory/dbr_cntl.h"
#include "recfile/record_files_fixture.h"

namespace zvrtest {

class KeyedFiles : public ::testing::Test {
 protected:
  KeyedFiles() : files_("KEYED") {
    zvrdb::DBR_CNTL* cntl = files_.cntl();
    cntl->num_trgs_allowed = 20;
    cntl->trg_cntl_len = 20 * 192;
    cntl->name_index_len = 20 * 8;
    cntl->dsu_index_len = 20 * 4;
    cntl->num_cat_alloc = 10;
    cntl->cat_cntl_len = 10 * 4;
    cntl->dist_cat_len = 10 * 168;
    segment_.resize(zvrdb::memory::segment_length(tcb()) / 4);
    zvrdb::memory::lay_out(tcb(), reinterpret_cast<unsigned char*>(segment_.data()), segment_.size() * 4);
    for (std::uint32_t i = 0; i < 20; ++i) {
      tcb()->name_index[i].trg_index = i + 1;
      tcb()->dsu_index[i] = i + 1;
    }
    for (cntl->num_trgs_actual = 0; cntl->num_trgs_actual < 9; ++cntl->num_trgs_actual) {
      zvrdb::TRG_CNTL_ENTRY& slot = tcb()->trg_cntl[cntl->num_trgs_actual];
      std::snprintf(slot.trg_name, sizeof slot.trg_name, "T%u", cntl->num_trgs_actual + 1);
      slot.in_use = 1;
    }
  }
  ~KeyedFiles() override {
    files_.close_files();
    free_scratch();
    zvrdb::memory::forget_layout(tcb());
  }
  void SetUp() override { ASSERT_EQ(files_.open(), DBE_OK); }

  void free_scratch() {
    if (tcb()->scratch) co_free_int(task(), tcb()->scratch, "KeyedFiles");
    tcb()->scratch = nullptr;
    tcb()->scratch_len = 0;
  }
  void* task() { return files_.task(); }
  zvrdb::DBR_TCB* tcb() { return files_.tcb(); }

  // Keys in host order, each in the 124 bytes that any record file takes.
  static record_bytes target_key(std::uint32_t db_id, std::uint32_t number) {
    return record_bytes(124).number(0, db_id).number(4, number);
  }
  static record_bytes name_key(std::uint32_t db_id, const std::string& name) {
    return record_bytes(124).number(0, db_id).text(4, name);
  }

 private:
  zvrdb::test::TempInstallation installation_;
  file_task files_;
  std::vector<std::uint32_t> segment_;
};

}  // namespace zvrtest
