// What every exported call has around its work: trace, enter, leave, and the tests of
// what the caller passed.
#pragma once

#include <cstdint>

#include "frame/dispatch.h"
#include "frame/entry.h"
#include "memory/record_types.h"
#include "memory/trace.h"

namespace zvrdb::frame {

// Runs `work`, which answers the result of the call, between dbr_in and dbr_out on
// db_id.  dbr_out follows also when dbr_in failed; `work` does not.  `function` is the
// name of the exported call.
template <class Work>
std::int16_t framed_call(void* task, const char* function, operation op, std::uint32_t db_id, Work work) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  rc = dbr_in(task, op, db_id);
  if (rc == DBE_OK)
    rc = work();
  else
    bracket.quitting();
  dbr_out(task, op, db_id, rc);
  return rc;
}

// A column of the table of record types.
template <class Handler>
struct handler_column {
  Handler record_type::*place;
  const char* name;  // in traces
  operation op;
  std::uint32_t missing;  // message for a record type that has no such handler
};

// A handler found in its column.  Calling it says so in the trace.
template <class Handler>
struct found_handler {
  void* task;
  const char* function;
  const char* name;
  std::uint32_t db_id;
  Handler handler;

  template <class... Arguments>
  std::int16_t operator()(Arguments... arguments) const {
    if (co_trc_test(task, 2, 2))
      co_trc2(task, 2, 2, function, "Calling %s for db_id %hd", name, static_cast<short>(db_id));
    return handler(task, arguments...);
  }
};

// A framed call whose work is given the handler of db_id.  Without one: 8193 and the
// message of the column, when entered.
template <class Handler, class Work>
std::int16_t handled_call(void* task, const char* function, const handler_column<Handler>& column,
                          std::uint32_t db_id, Work work) {
  return framed_call(task, function, column.op, db_id, [&]() -> std::int16_t {
    const Handler handler = type_row(db_id).*column.place;
    if (handler) return work(found_handler<Handler>{task, function, column.name, db_id, handler});
    memory::log_db_msg(task, column.missing, db_id);
    trace_quitting(task, function);
    return DBE_BAD_DB_ID;
  });
}

// Keys that the handler of the record type will follow: as many as the type has, none
// of them null.
bool keys_given(std::uint32_t db_id, std::uint16_t num_keys, keys_arg keys);

// A null area of length 0 is allowed; the handler then gets an area that is none of the
// caller's, for it may not take null.  False for a null area of any other length.
bool take_area(void** area, std::uint32_t length);

}  // namespace zvrdb::frame
