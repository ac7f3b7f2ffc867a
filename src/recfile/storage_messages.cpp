// Messages about failures of the storage engine.
#include "recfile/storage_messages.h"

#include <array>

#include "engine/engine.h"
#include "memory/trace.h"
#include "recfile/recfile.h"

namespace zvrdb::recfile {
namespace {

enum class inserts : std::uint8_t { name, name_and_code };
constexpr std::int16_t any_code = 0;

struct message_row {
  std::uint16_t function;
  std::int16_t code;  // any_code: whatever no row above it for the function named
  std::uint32_t message;
  inserts with;
};

constexpr std::array message_table = std::to_array<message_row>({
    {at_open, any_code, 36435, inserts::name_and_code},
    {at_transroll, any_code, 36436, inserts::name_and_code},
    {at_close_or_flush, any_code, 36437, inserts::name},
    {at_read, engine::e_not_found, 36438, inserts::name},
    {at_read, engine::e_field_list, 36439, inserts::name},
    {at_read, any_code, 36440, inserts::name},
    {at_insert, any_code, 36441, inserts::name},
    {at_keyval, any_code, 36442, inserts::name_and_code},
    {at_lock, engine::e_locked_by_other, 36443, inserts::name},
    {at_lock, any_code, 36444, inserts::name},
    {at_update, engine::e_not_found, 36445, inserts::name},
    {at_update, engine::e_field_list, 36439, inserts::name},
    {at_update, -17, 36446, inserts::name},
    {at_update, any_code, 36447, inserts::name},
    {at_delete, engine::e_field_list, 36439, inserts::name},
    {at_delete, any_code, 36448, inserts::name},
    {at_transbeg, any_code, 36449, inserts::name_and_code},
    {at_transend, any_code, 36450, inserts::name_and_code},
});
constexpr std::uint32_t unknown_function = 36434;
constexpr std::uint32_t disk_full = 36409;
constexpr long disk_full_insert = 28;

}  // namespace

void issue_err_msg(void* task, const char* file_name, std::int16_t code, std::uint16_t function_number) {
  const trace_bracket bracket(task, __func__);
  if (code == engine::e_write) co_log2(task, disk_full, 0, 0, 0, "%s|%ld", file_name, disk_full_insert);
  for (const message_row& row : message_table) {
    if (row.function != function_number || (row.code != any_code && row.code != code)) continue;
    if (row.with == inserts::name)
      co_log2(task, row.message, 0, 0, 0, "%s", file_name);
    else
      co_log2(task, row.message, 0, 0, 0, "%s|%hd", file_name, code);
    return;
  }
  co_log2(task, unknown_function, 0, 0, 0, "%s|%hd", file_name, static_cast<short>(function_number));
}

}  // namespace zvrdb::recfile
