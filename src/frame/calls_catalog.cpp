// Calls on the catalog beside the generic ones.
#include "catalog/catalog.h"
#include "frame/call_bracket.h"
#include "memory/cf_name.h"

using namespace zvrdb;
using namespace zvrdb::frame;

extern "C" {

int16_t db_find_cat_idx(void* task, const void* cf_name, const void* list, uint16_t count, uint16_t* index) {
  return framed_call(task, __func__, operation::read, DB_CAT, [&]() -> std::int16_t {
    if (!cf_name) return DBE_NOT_FOUND;
    if (!index || (!list && count > 0)) return DBE_LIST_TOO_SMALL;
    return catalog::find_cat_idx(task, cf_name, list, count, index);
  });
}

int16_t db_get_type(void* task, const void* cf_name, uint16_t token_index) {
  return memory::get_type(task, cf_name, token_index);
}

}  // extern "C"
