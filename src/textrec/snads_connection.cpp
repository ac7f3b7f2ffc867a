// SNADS connections: how neighbouring servers are reached.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "textrec/keyword_tables.h"
#include "textrec/parsed_files.h"
#include "textrec/record_defaults.h"
#include "textrec/record_printers.h"
#include "textrec/text_records.h"
#include "textrec/text_writer.h"

namespace zvrdb::textrec {
namespace {

constexpr char directory[] = "snadscon";
constexpr parsed_source source = {DB_SCN, directory, scn_name_len, scn_keywords};

struct connection {
  char name[scn_name_len];
  std::uint16_t protocol;
  std::uint16_t type;
  char send_tp[9];
  unsigned char spare29[3];
  char receive_tp[9];
  unsigned char spare41[3];
  char next_rgn[8];
  char next_ren[8];
  std::uint32_t transmission_time_out;
  std::uint16_t retry_limit;
  unsigned char spare66[2];
  std::uint32_t send_mu_id_time_out;
  std::uint32_t receive_mu_id_time_out;
  char remote_server[64];
  std::uint32_t tcpip_time_out;
};
static_assert(sizeof(connection) == scn_record_len);
static_assert(offsetof(connection, protocol) == 16);
static_assert(offsetof(connection, next_rgn) == 44);
static_assert(offsetof(connection, remote_server) == 76);
static_assert(offsetof(connection, tcpip_time_out) == 140);

constexpr unsigned char appc = 1;
constexpr unsigned char tcpip = 2;
constexpr unsigned char ipx = 4;
constexpr unsigned char nbi = 5;
constexpr unsigned char sna = 1;
constexpr std::uint32_t unknown_server = 36469;

const char* protocol_word(std::uint16_t protocol) {
  switch (protocol) {
    case tcpip:
      return "TCP/IP";
    case ipx:
      return "IPX";
    case nbi:
      return "NBI";
    default:
      return "APPC";
  }
}

void copy_name(const TRG_CNTL_ENTRY* entry, char* name) {
  std::memcpy(name, entry->trg_name, sizeof entry->trg_name);
}

// Name (64 bytes) of the target with this RGN.REN.  The tables belong to "DBR_MEM",
// which is not ours: the index is searched and, should it be out of order, scanned, and
// nothing is written.
bool name_of_dsu(void* task, const char* rgn, const char* ren, char* name) {
  DBR_TCB* tcb = memory::tcb_of(task);
  if (!tcb || !memory::tables_mapped(tcb)) return false;
  // No network name means the network of this server.
  if (!rgn[0] && tcb->cntl->local_dsu[0]) rgn = tcb->cntl->local_dsu;
  char wanted[memory::dsu_text_len + 1];
  memory::dsu_text(wanted, rgn, ren);
  std::int64_t position = memory::find_dsu(task, wanted);
  const std::uint32_t count = memory::trg_count(tcb);
  for (std::uint32_t i = 0; position < 0 && i < count; ++i) {
    const TRG_CNTL_ENTRY* entry = memory::trg_slot(tcb, tcb->dsu_index[i]);
    char text[memory::dsu_text_len + 1];
    if (!entry) continue;
    memory::dsu_text_of(tcb, entry, text);
    if (std::strcmp(text, wanted) == 0) position = i;
  }
  const TRG_CNTL_ENTRY* found = position < 0 ? nullptr : memory::trg_slot(tcb, tcb->dsu_index[position]);
  if (found) copy_name(found, name);
  return found != nullptr;
}

// What stands for a server that has no name: the text of a message.
void name_unknown_server(void* task, char* name, std::size_t size) {
  char message[CO_MESSAGE_BUFFER] = {};
  co_log2_notest(task, unknown_server, message, 0, 0, "%s", "");
  const char* text = message + CO_MESSAGE_PREFIX;
  const std::size_t length = strnlen(text, std::min(size - 1, sizeof message - CO_MESSAGE_PREFIX));
  std::memset(name, 0, size);
  std::memcpy(name, text, length);
}

void derive_server(void* task, void* record) {
  auto* bytes = static_cast<char*>(record);
  char* server = bytes + offsetof(connection, remote_server);
  if (server[0]) return;
  constexpr std::size_t size = sizeof(connection::remote_server);
  static_assert(size == memory::trg_name_len);
  if (name_of_dsu(task, bytes + offsetof(connection, next_rgn), bytes + offsetof(connection, next_ren),
                  server))
    return;
  ZVR_TRACE(task, 3, 2, "%s", "Unable to convert DSU name");
  name_unknown_server(task, server, size);
}

// What a text need not tell, whether it could be read or not.
void complete(void* task, std::int16_t rc, void* record, std::uint32_t record_len) {
  if (default_word(record, record_len, offsetof(connection, protocol), appc))
    ZVR_TRACE(task, 3, 2, "%s", "setting PROTOCOL to default SNA");
  if (default_word(record, record_len, offsetof(connection, type), sna))
    ZVR_TRACE(task, 3, 2, "%s", "setting TYPE to default SNA_CONN");
  // The field behind the name need not be there.
  if (rc == DBE_OK && record_len >= offsetof(connection, tcpip_time_out)) derive_server(task, record);
}

}  // namespace

std::int32_t unparse_scn(void* task, char* text, const void* record, std::uint32_t) {
  const trace_bracket bracket(task, __func__);
  connection from;
  std::memcpy(&from, record, sizeof from);
  text_writer out(text);
  out.print("TYPE:         %s\n", from.type == sna ? "SNA" : "STS");
  out.print("PROTOCOL:         %s\n", protocol_word(from.protocol));
  // Of a text as long as its field the last byte is left out: it could not be read back.
  if (from.protocol == appc) {
    out.print("SEND TP SYMBOLIC DESTINATION:  %s\n", field_text(from.send_tp, sizeof from.send_tp - 1).text);
    out.print("RECEIVE TP SYMBOLIC DESTINATION:  %s\n",
              field_text(from.receive_tp, sizeof from.receive_tp - 1).text);
  } else {
    out.print("REMOTE SERVER NAME:  %s\n",
              field_text(from.remote_server, sizeof from.remote_server - 1).text);
    out.print("TCP/IP TIME-OUT:  %lu\n", static_cast<unsigned long>(from.tcpip_time_out));
  }
  out.print("NEXT DSU:  %s.%s\n", field_text(from.next_rgn).text, field_text(from.next_ren).text);
  out.print("TRANSMISSION TIME-OUT:  %lu\n", static_cast<unsigned long>(from.transmission_time_out));
  out.print("RETRY LIMIT:  %ld\n", static_cast<long>(from.retry_limit));
  out.print("SEND MU_ID TIME-OUT:  %lu\n", static_cast<unsigned long>(from.send_mu_id_time_out));
  out.print("RECEIVE MU_ID TIME-OUT:  %lu\n", static_cast<unsigned long>(from.receive_mu_id_time_out));
  return out.length();
}

std::int16_t get_scn(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  rc = get_parsed(task, source, num_keys, keys, record, record_len);
  complete(task, rc, record, record_len);
  return rc;
}

std::int16_t get_next_scn(void* task, const void* list, const std::uint16_t* index, void* record,
                          std::uint16_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  rc = get_next_parsed(task, source, list, index, scn_name_len, record, record_len);
  complete(task, rc, record, record_len);
  return rc;
}

std::int16_t put_scn(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = put_parsed(task, directory, num_keys, keys, unparse_scn, record, record_len);
}

std::int16_t del_scn(void* task, std::uint16_t num_keys, const void* const* keys) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = del_parsed(task, directory, num_keys, keys);
}

std::int16_t start_list_scn(void* task, const void*, void* list, std::uint32_t size, std::uint16_t* count) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = start_list_parsed(task, directory, scn_name_len, list, size, count);
}

}  // namespace zvrdb::textrec
