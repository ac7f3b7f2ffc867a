// What every exported call has around its work: enter, leave, and the tests of what
// the caller passed.
#pragma once

#include <cstdint>

#include "frame/dispatch.h"
#include "frame/entry.h"
#include "memory/record_types.h"
#include "memory/trace.h"

namespace zvrdb::frame {

// Enters when made and leaves when it goes out of scope, also when entering failed.
class call_bracket {
 public:
  call_bracket(void* task, operation op, std::uint32_t db_id, std::int16_t* rc)
      : task_(task), op_(op), db_id_(db_id), rc_(rc) {
    *rc_ = dbr_in(task_, op_, db_id_);
  }
  ~call_bracket() {
    if (!stay_) dbr_out(task_, op_, db_id_, *rc_);
  }
  call_bracket(const call_bracket&) = delete;
  call_bracket& operator=(const call_bracket&) = delete;
  bool entered() const { return *rc_ == DBE_OK; }
  void leave_as(operation op) { op_ = op; }
  // The task stays inside and keeps the semaphore.
  void stay() { stay_ = true; }

 private:
  void* task_;
  operation op_;
  std::uint32_t db_id_;
  std::int16_t* rc_;
  bool stay_ = false;
};

// Keys that the handler of the record type will follow: as many as the type has, none
// of them null.
bool keys_given(std::uint32_t db_id, std::uint16_t num_keys, keys_arg keys);

}  // namespace zvrdb::frame
