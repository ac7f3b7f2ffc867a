// Calls on CM status beside the generic ones.
#include "cmstatus/cm_status.h"
#include "frame/call_bracket.h"

using namespace zvrdb;
using namespace zvrdb::frame;

extern "C" {

int16_t db_del_cf_cms(void* task, const void* cf_name) {
  return framed_call(task, __func__, operation::write, DB_CMS, [&]() -> std::int16_t {
    if (!cf_name) return DBE_NOT_FOUND;
    return cmstatus::del_cf_cms(task, cf_name);
  });
}

int16_t db_cm_by_cat(void* task, const void* cf_name, uint8_t* list, uint32_t length) {
  bool filled = false;
  cmstatus::default_status_rule rule = {};
  const std::int16_t rc = framed_call(task, __func__, operation::read, DB_CMS, [&]() -> std::int16_t {
    if (!list) return DBE_LIST_TOO_SMALL;
    if (!cf_name) return DBE_NOT_FOUND;
    filled = true;
    return cmstatus::cm_by_cat(task, cf_name, list, length, &rule);
  });
  // Whatever the result was, and without the lock: nobody has to wait for this loop.
  if (filled) cmstatus::add_default_status(task, list, length, rule);
  return rc;
}

int16_t db_cm_by_trg(void* task, const char* target, uint32_t* list, uint32_t length, uint32_t* count) {
  if (count) *count = 0;
  return framed_call(task, __func__, operation::read, DB_CMS, [&]() -> std::int16_t {
    if (!count || !list) return DBE_LIST_TOO_SMALL;
    if (!target) return DBE_NOT_FOUND;
    return cmstatus::cm_by_trg(task, target, list, length, count);
  });
}

}  // extern "C"
