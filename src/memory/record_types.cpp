#include "memory/record_types.h"

#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <array>
#include <cstring>

#include "memory/trace.h"

namespace zvrdb::memory {
namespace {

constexpr std::size_t type_str_len = 128;
static_assert(CO_MESSAGE_BUFFER - CO_MESSAGE_PREFIX == type_str_len);

// Message whose text is the name of the type, 0 for a type without one.  Users (22)
// and profiles (23) stand the other way round than their neighbours, and both kinds
// of correlator (28, 29) share one name.
constexpr std::array<std::uint16_t, DB_TYPE_COUNT> type_messages = {
    36393, 36394, 36395, 36396, 36397, 36398, 36399, 36400, 36401, 36402, 36403, 36404,  // 0 to 11
    0,     0,     0,     0,     0,                                                       // 12 to 16
    36419, 36420, 36464, 36421, 36422, 36424, 36423, 36425, 36426, 36427, 36428,         // 17 to 27
    36458, 36458, 36463, 36466, 36467, 0};                                               // 28 to 33

}  // namespace

void type_str(void* task, std::uint32_t db_id, char* dst) {
  const trace_bracket bracket(task, __func__);
  dst[0] = 0;
  if (db_id >= type_messages.size() || type_messages[db_id] == 0) return;
  char rendered[CO_MESSAGE_BUFFER] = {};
  co_log2_notest(task, type_messages[db_id], rendered, 0, 0, "%s", "");
  rendered[CO_MESSAGE_BUFFER - 1] = 0;
  std::memcpy(dst, rendered + CO_MESSAGE_PREFIX, type_str_len);
  ZVR_TRACE(task, 2, 2, "db string = %s", dst);
}

void log_db_msg(void* task, std::uint32_t message_number, std::uint32_t db_id) {
  const trace_bracket bracket(task, __func__);
  char name[type_str_len];
  type_str(task, db_id, name);
  co_log2(task, message_number, 0, 0, 0, "%s", name);
}

}  // namespace zvrdb::memory
