#include "cmstatus/stored_records.h"

#include "memory/table_bounds.h"
#include "recfile/recfile.h"

namespace zvrdb::cmstatus {

std::int16_t locate(void* task, record_kind kind, std::uint32_t number) {
  record_key key = key_of(kind, number);
  return recfile::db_locate(task, memory::tcb_of(task)->cms_file, &key, recfile::KEY_EQ);
}

}  // namespace zvrdb::cmstatus
