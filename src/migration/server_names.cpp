// Servers were told by network names; now each target names its server.
#include <cstring>

#include "keyed/keyed.h"
#include "memory/shared_tables.h"
#include "memory/trace.h"
#include "migration/target_conversion.h"
#include "migration/target_record.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint8_t older_focal = 8;
constexpr std::uint8_t mode_push_or_pull = 3;
constexpr std::size_t name_room = memory::trg_name_len + 1;

void trace_relation(const conversion& run, std::uint8_t bits) {
  const char* text = (bits & 8) ? "Target is a server" : "Target is a remote client";
  if (bits == 132) text = "Target is a remote base system";
  if (bits == 34) text = "Target is a local client";
  ZVR_TRACE(run.task, 2, 2, "%s", text);
}

void convert_relation(const conversion& run, unsigned char* record, const char* name, const char* server) {
  std::memset(record + target_at::server_name, 0, memory::trg_name_len);
  std::memcpy(record + target_at::server_name, server, strnlen(server, memory::trg_name_len - 1));
  const type_and_mode made = convert_type(record[target_at::type]);
  if (made.set_to_push) ZVR_TRACE(run.task, 2, 2, "%s", "Setted Target mode to PUSH");
  record[target_at::type] = made.type;
  record[target_at::mode] = made.mode;
  if ((made.mode & mode_push_or_pull) == 0 && (made.type & type_remote) == 0) return;
  const std::uint8_t bits = relation_bits(made.type, server[0] != 0, co_collate(run.task, name, server) == 0);
  trace_relation(run, bits);
  record[target_at::type] |= bits;
}

std::int16_t copy_one(conversion& run, new_file* targets, std::uint32_t number, unsigned char* record) {
  char name[name_room] = {};
  std::memcpy(name, run.tcb->trg_cntl[number - 1].trg_name, memory::trg_name_len);
  char server[name_room] = {};
  std::int16_t rc = get_old_srvname(run, name, server);
  if (rc == DBE_NOT_FOUND)
    server[0] = 0;
  else if (rc != DBE_OK)
    return rc;
  target_key key = {DB_TRG, number, 0};
  rc = keyed::get_keyed(run.task, DB_TRG, targets->handle(), &key, record, target_len);
  if (rc != DBE_OK) return rc;
  convert_relation(run, record, name, server);
  key = {DB_TRG, number, 0};
  rc = targets->put(DB_TRG, &key, record, target_len);
  if (rc == DBE_NO_TARGET) tell_note(run, 0, "the server of %s would be %s, which is no target", name, server);
  return ok_or(stored(rc), rc);
}

}  // namespace

std::int16_t get_old_srvname(const conversion& run, const char* name, char (&server)[name_room]) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  std::memset(server, 0, sizeof server);
  const std::int64_t position = memory::find_name(run.task, name);
  TRG_CNTL_ENTRY* slot =
      position < 0 ? nullptr : memory::trg_slot(run.tcb, run.tcb->name_index[position].trg_index);
  if (!slot) return rc = DBE_NOT_FOUND;
  if (slot->rgn[0] == 0) {
    co_get_target(run.task, server, 0);
    return rc;
  }
  if ((slot->trg_type & older_focal) == 0) {
    char text[memory::dsu_text_len + 1];
    memory::dsu_text(text, slot->rgn, slot->rgn);
    const std::int64_t found = memory::find_dsu(run.task, text);
    slot = found < 0 ? nullptr : memory::trg_slot(run.tcb, run.tcb->dsu_index[found]);
    if (!slot) return rc = DBE_NOT_FOUND;
  }
  std::memcpy(server, slot->trg_name, memory::trg_name_len);
  return rc;
}

std::int16_t copy_srv_names(conversion& run, new_file* targets) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  auto* record =
      static_cast<unsigned char*>(co_malloc(run.task, target_len, CO_MEM_PRIVATE, "TRG_BUFF"));
  if (!record) {
    co_log2(run.task, 36355, 0, 0, 0, "%s", "TRG_BUFF");
    return rc = DBE_IO_ERROR;
  }
  const std::uint32_t count = memory::trg_count(run.tcb);
  for (std::uint32_t i = 0; i < count && rc == DBE_OK; ++i)
    rc = copy_one(run, targets, run.tcb->name_index[i].trg_index, record);
  co_free_int(run.task, record, "copy_srv_names");
  return rc;
}

}  // namespace zvrdb::migration
