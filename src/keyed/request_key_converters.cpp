// Keys of user requests and of correlators, which begin with the same identifier.
#include <array>

#include "keyed/converters.h"
#include "keyed/record_bytes.h"
#include "memory/shared_tables.h"
#include "memory/trace.h"

namespace zvrdb::keyed {
namespace {

// Internal identifier.
constexpr std::uint32_t id_user = 0;
constexpr std::uint32_t id_source = 16;
constexpr std::uint32_t id_sequence = 80;
constexpr std::uint32_t id_recursion = 84;  // u16
constexpr std::uint32_t id_function = 88;
constexpr std::uint32_t id_server = 104;  // fanout server, 16 bytes, for fan-out records
constexpr std::uint32_t id_target = 168;
constexpr std::uint32_t short_text_len = 16;
constexpr std::uint32_t name_len = 64;

// Key of a request.
constexpr std::uint32_t request_key_len = 76;
constexpr std::uint32_t key_source = 4;
constexpr std::uint32_t key_user = 8;
constexpr std::uint32_t key_sequence = 24;
constexpr std::uint32_t key_recursion = 28;  // u32
constexpr std::uint32_t key_function = 32;
constexpr std::uint32_t key_fanout = 48;
constexpr std::uint32_t key_server = 64;
constexpr std::uint32_t key_target = 68;

// Keys of a correlator: key 1, and key 2 behind it.
constexpr std::uint32_t origin_key_len = 48;
constexpr std::uint32_t both_keys_len = 124;
constexpr std::uint32_t origin_source = 0;
constexpr std::uint32_t origin_user = 4;
constexpr std::uint32_t origin_sequence = 20;
constexpr std::uint32_t origin_recursion = 24;
constexpr std::uint32_t origin_function = 28;
constexpr std::uint32_t record_sna_origin = 104;
constexpr std::uint32_t key_sna_origin = 48;
struct sna_word {
  std::uint32_t in_record;
  std::uint32_t in_key;
};
constexpr sna_word sna_words[] = {{168, 112}, {172, 116}, {176, 120}};  // date, time, sequence

// What the identifier of each type has beside user, source server and numbers.
struct request_parts {
  std::uint32_t db_id;
  bool function;
  bool server;
  bool fanout;
  bool target;
};
constexpr std::array request_types = std::to_array<request_parts>({
    {DB_RQR, false, false, false, false},
    {DB_RQF, true, false, false, false},
    {DB_FAN, true, false, true, false},
    {DB_RQD, true, true, false, false},
    {DB_RQT, true, true, false, true},
    {DB_RQV, true, false, false, false},
});

const request_parts* parts_of(std::uint32_t db_id) {
  for (const request_parts& parts : request_types)
    if (parts.db_id == db_id) return &parts;
  return nullptr;
}

std::int16_t not_a_request(void* task, std::uint32_t db_id) {
  co_log2(task, 36366, 0, 0, 0, "%lu", static_cast<unsigned long>(db_id));
  return DBE_BAD_DB_ID;
}

std::int16_t number_of(void* task, internal_record_view from, std::uint32_t offset, const char* what,
                       unsigned char* out) {
  const name_text name = take_name(from, offset);
  std::uint32_t number = 0;
  const std::int16_t rc = memory::get_trg_index(task, name.text, &number);
  if (rc == DBE_OK)
    store_number(out, number);
  else
    ZVR_TRACE(task, 2, 2, "%s %s not found", what, name.text);
  return rc;
}

// Writes the 64 bytes of a name when the record reaches behind them.
std::int16_t name_of(void* task, const unsigned char* number_at, const char* what, internal_record to,
                     std::uint32_t offset) {
  if (to.length < offset + name_len) return DBE_OK;
  const auto number = load_number<std::uint32_t>(number_at);
  const std::int16_t rc = memory::get_trg_name(task, reinterpret_cast<char*>(to.base + offset), number);
  if (rc != DBE_OK)
    ZVR_TRACE(task, 2, 2, "%s number %lu not found", what, static_cast<unsigned long>(number));
  return rc;
}

void put_bytes(internal_record to, std::uint32_t offset, const unsigned char* bytes, std::uint32_t width) {
  if (to.length >= offset + width) std::memcpy(to.base + offset, bytes, width);
}

void put_recursion(internal_record to, const unsigned char* key_field) {
  const auto recursion = static_cast<std::uint16_t>(load_number<std::uint32_t>(key_field));
  if (to.length >= id_recursion + sizeof recursion) store_number(to.base + id_recursion, recursion);
}

std::int16_t build_request_key(void* task, std::uint32_t db_id, internal_record_view from,
                               unsigned char* key) {
  const request_parts* parts = parts_of(db_id);
  if (!parts) return not_a_request(task, db_id);
  std::memset(key, 0, request_key_len);
  std::int16_t rc = DBE_OK;
  if (parts->target) rc = number_of(task, from, id_target, "Target", key + key_target);
  if (rc == DBE_OK && parts->server) rc = number_of(task, from, id_server, "Server", key + key_server);
  if (rc != DBE_OK) return rc;
  if (parts->fanout) take_bytes(from, id_server, key + key_fanout, short_text_len);
  if (parts->function) take_text(from, id_function, key + key_function, short_text_len);
  rc = number_of(task, from, id_source, "Source server", key + key_source);
  if (rc != DBE_OK) return rc;
  take_text(from, id_user, key + key_user, short_text_len);
  take_bytes(from, id_sequence, key + key_sequence, sizeof(std::uint32_t));
  store_number(key + key_recursion, std::uint32_t{take_number<std::uint16_t>(from, id_recursion)});
  store_number(key, db_id);
  return DBE_OK;
}

std::int16_t read_request_key(void* task, std::uint32_t db_id, const unsigned char* key, internal_record to) {
  const request_parts* parts = parts_of(db_id);
  if (!parts) return not_a_request(task, db_id);
  std::int16_t rc = DBE_OK;
  if (parts->target) rc = name_of(task, key + key_target, "Target", to, id_target);
  if (rc == DBE_OK && parts->server) rc = name_of(task, key + key_server, "Server", to, id_server);
  if (rc != DBE_OK) return rc;
  if (parts->fanout) put_bytes(to, id_server, key + key_fanout, short_text_len);
  if (parts->function) put_bytes(to, id_function, key + key_function, short_text_len);
  rc = name_of(task, key + key_source, "Source server", to, id_source);
  if (rc != DBE_OK) return rc;
  put_bytes(to, id_user, key + key_user, short_text_len);
  put_bytes(to, id_sequence, key + key_sequence, sizeof(std::uint32_t));
  put_recursion(to, key + key_recursion);
  return DBE_OK;
}

}  // namespace

std::int16_t unprs_ur_key(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                          internal_record_view from) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (to->left() < request_key_len) rc = no_room(task, db_id);
  if (rc == DBE_OK) rc = build_request_key(task, db_id, from, to->at);
  if (rc != DBE_OK)
    bracket.quitting();
  else if (field)
    to->at += request_key_len;
  return rc;
}

std::int16_t prs_ur_key(void* task, std::uint32_t db_id, const field_descriptor* field, external_source* from,
                        internal_record to) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const external_key<request_key_len> key(*from);
  rc = read_request_key(task, db_id, key.bytes, to);
  if (rc != DBE_OK)
    bracket.quitting();
  else if (field)
    pass_over(from, request_key_len);
  return rc;
}

std::int16_t unprs_coo_key(void* task, std::uint32_t db_id, const field_descriptor*, external_sink* to,
                           internal_record_view from) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (to->left() < origin_key_len) return rc = no_room(task, db_id);
  unsigned char* key = to->at;
  std::memset(key, 0, origin_key_len);
  take_text(from, id_function, key + origin_function, short_text_len);
  rc = number_of(task, from, id_source, "Source server", key + origin_source);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  take_text(from, id_user, key + origin_user, short_text_len);
  take_bytes(from, id_sequence, key + origin_sequence, sizeof(std::uint32_t));
  store_number(key + origin_recursion, std::uint32_t{take_number<std::uint16_t>(from, id_recursion)});
  return rc;
}

std::int16_t prs_coo_key(void* task, std::uint32_t, const field_descriptor*, external_source* from,
                         internal_record to) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const external_key<origin_key_len> key(*from);
  put_bytes(to, id_function, key.bytes + origin_function, short_text_len);
  rc = name_of(task, key.bytes + origin_source, "Source server", to, id_source);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  put_bytes(to, id_user, key.bytes + origin_user, short_text_len);
  put_bytes(to, id_sequence, key.bytes + origin_sequence, sizeof(std::uint32_t));
  put_recursion(to, key.bytes + origin_recursion);
  return rc;
}

std::int16_t unprs_coi_key(void* task, std::uint32_t db_id, const field_descriptor*, external_sink* to,
                           internal_record_view from) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (to->left() < both_keys_len) return rc = no_room(task, db_id);
  std::memset(to->at + origin_key_len, 0, both_keys_len - origin_key_len);
  take_text(from, record_sna_origin, to->at + key_sna_origin, name_len);
  for (const sna_word& word : sna_words)
    take_bytes(from, word.in_record, to->at + word.in_key, sizeof(std::uint32_t));
  to->at += both_keys_len;
  return rc;
}

std::int16_t prs_coi_key(void* task, std::uint32_t, const field_descriptor*, external_source* from,
                         internal_record to) {
  const trace_bracket bracket(task, __func__);
  const external_key<both_keys_len> key(*from);
  put_bytes(to, record_sna_origin, key.bytes + key_sna_origin, name_len);
  for (const sna_word& word : sna_words)
    put_bytes(to, word.in_record, key.bytes + word.in_key, sizeof(std::uint32_t));
  pass_over(from, both_keys_len);
  return DBE_OK;
}

}  // namespace zvrdb::keyed
