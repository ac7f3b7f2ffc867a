// A task whose tables lie in plain memory, without a request frame and without files.
#pragma once

#include <gtest/gtest.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "memory/dbr_cntl.h"
#include "memory/dbr_tcb.h"
#include "memory/shared_tables.h"
#include "support/temp_installation.h"

namespace zvrtest {

class table_task {
 public:
  explicit table_task(std::uint32_t allowed = 20, std::uint32_t change_files = 10)
      : cntl_(std::make_unique<zvrdb::DBR_CNTL>()), tcb_(std::make_unique<zvrdb::DBR_TCB>()) {
    task_ = co_init_task("TABLES", nullptr, 0);
    if (!task_) {
      ADD_FAILURE() << "no task: " << co_init_error();
      abort();
    }
    co_slots(task_)->dbr_tcb = tcb_.get();
    tcb_->cntl = cntl_.get();
    cntl_->num_trgs_allowed = allowed;
    cntl_->trg_cntl_len = allowed * 192;
    cntl_->name_index_len = allowed * 8;
    cntl_->dsu_index_len = allowed * 4;
    cntl_->num_cat_alloc = change_files;
    cntl_->cat_cntl_len = change_files * 4;
    cntl_->dist_cat_len = change_files * 168;
    segment_.resize(zvrdb::memory::segment_length(tcb_.get()) / 4);
    zvrdb::memory::lay_out(tcb_.get(), reinterpret_cast<unsigned char*>(segment_.data()),
                           segment_.size() * 4);
    for (std::uint32_t i = 0; i < allowed; ++i) {
      tcb_->name_index[i].trg_index = i + 1;
      tcb_->dsu_index[i] = i + 1;
    }
  }
  ~table_task() {
    if (tcb_->scratch) co_free_int(task_, tcb_->scratch, "table_task");
    co_slots(task_)->dbr_tcb = nullptr;
    coi_term_task(task_, 0);
  }
  table_task(const table_task&) = delete;
  table_task& operator=(const table_task&) = delete;

  // The next free number, with the indexes sorted anew.
  std::uint32_t add(const std::string& name, const std::string& rgn = "", const std::string& ren = "",
                    unsigned type = 2) {
    const std::uint32_t number = add_unsorted(name, rgn, ren, type);
    zvrdb::memory::sort_names(task_);
    zvrdb::memory::sort_dsu(task_);
    return number;
  }
  std::uint32_t add_unsorted(const std::string& name, const std::string& rgn = "",
                             const std::string& ren = "", unsigned type = 2) {
    const std::uint32_t number = tcb_->name_index[cntl_->num_trgs_actual].trg_index;
    zvrdb::TRG_CNTL_ENTRY& slot = tcb_->trg_cntl[number - 1];
    slot = {};
    std::memcpy(slot.trg_name, name.data(), std::min<std::size_t>(name.size(), 64));
    std::memcpy(slot.rgn, rgn.data(), std::min<std::size_t>(rgn.size(), 8));
    std::memcpy(slot.ren, ren.data(), std::min<std::size_t>(ren.size(), 8));
    slot.trg_type = static_cast<std::uint8_t>(type);
    slot.in_use = 1;
    ++cntl_->num_trgs_actual;
    return number;
  }
  std::string name_at(std::int64_t position) {
    if (position < 0 || position >= cntl_->num_trgs_actual) return "<none>";
    return zvrdb::memory::trg_slot(tcb_.get(), tcb_->name_index[position].trg_index)->trg_name;
  }
  std::string unsound() {
    char reason[200];
    return zvrdb::memory::tables_sound(task_, reason, sizeof reason) ? "" : reason;
  }

  const zvrdb::test::TempInstallation& installation() const { return installation_; }
  void* task() const { return task_; }
  zvrdb::DBR_TCB* tcb() const { return tcb_.get(); }
  zvrdb::DBR_CNTL* cntl() const { return cntl_.get(); }

 private:
  zvrdb::test::TempInstallation installation_;
  std::unique_ptr<zvrdb::DBR_CNTL> cntl_;
  std::unique_ptr<zvrdb::DBR_TCB> tcb_;
  std::vector<std::uint32_t> segment_;
  void* task_ = nullptr;
};

}  // namespace zvrtest
