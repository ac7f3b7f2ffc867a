// A line of the route table.
#include <cstring>

#include "memory/trace.h"
#include "textrec/parse.h"
#include "textrec/parse_faults.h"
#include "textrec/route_entry.h"
#include "textrec/text_numbers.h"

namespace zvrdb::textrec {
namespace {

constexpr unsigned text_fields = 6;
constexpr std::size_t destination_width = 18;
constexpr std::size_t field_width = 16;
constexpr std::size_t name_len = 8;  // of RGN and REN
constexpr std::size_t connection_len = 15;

struct scanned_line {
  char fields[text_fields][destination_width + 1];
  std::uint16_t hop_count;
  unsigned count;
};

bool is_white(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

const char* past_white(const char* at) {
  while (is_white(*at)) ++at;
  return at;
}

// Reads fields of "%18s %16s %16s %16s %16s %16s %hd": a text that is longer than its
// field goes on in the next one.
void scan(const char* at, scanned_line* out) {
  *out = {};
  for (unsigned i = 0; i < text_fields; ++i) {
    at = past_white(at);
    if (!*at) return;
    const std::size_t width = i == 0 ? destination_width : field_width;
    std::size_t length = 0;
    while (length < width && at[length] && !is_white(at[length])) ++length;
    std::memcpy(out->fields[i], at, length);
    at += length;
    ++out->count;
  }
  at = past_white(at);
  if (!is_digit(at[*at == '-' || *at == '+' ? 1 : 0])) return;
  out->hop_count = static_cast<std::uint16_t>(decimal_number(at));
  ++out->count;
}

std::int16_t refuse_route(void* task, const special_value& given) {
  tell_fault(task, given.place, bad_route, "%s|%s", given.value, given.type_name);
  return DBE_BAD_RECORD;
}

std::int16_t refuse_length(void* task, const special_value& given, const char* what, const char* text,
                           long limit) {
  tell_fault(task, given.place, value_too_long, "%s|%s|%ld|%s|%s", what, text, limit, "", given.type_name);
  return DBE_BAD_RECORD;
}

std::int16_t set_destination(void* task, const special_value& given, char* destination, route_entry* route) {
  if (!std::strchr(destination, '.')) return refuse_route(task, given);
  char* rgn = destination + std::strspn(destination, ".");
  char* ren = rgn + std::strcspn(rgn, ".");
  if (*ren) *ren++ = 0;
  if (std::strlen(rgn) > name_len) return refuse_length(task, given, "Dest RGN", rgn, name_len);
  if (std::strlen(ren) > name_len) return refuse_length(task, given, "Dest REN", ren, name_len);
  std::memcpy(route->rgn, rgn, std::strlen(rgn));
  std::memcpy(route->ren, ren, std::strlen(ren));
  return DBE_OK;
}

void set_parameters(void* task, const special_value& given, const scanned_line& line, route_entry* route) {
  const bool defined = line.count >= text_fields;
  for (unsigned i = 0; i < service_parameter_count; ++i) {
    const value_word* list = service_parameters[i];
    route->parameters[i] = defined ? routes::number_of_word(task, list, line.fields[i + 1], given.place)
                                   : static_cast<std::uint8_t>(list->number);
  }
}

}  // namespace

std::int16_t SNDS_RTE_PRS(void* task, const special_value& given) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  scanned_line line;
  scan(given.value, &line);
  const bool named = line.count == 2 || line.count == 3;
  if (!named && line.count < text_fields) return rc = refuse_route(task, given);
  if (line.count == 2 || line.count == text_fields)
    ZVR_TRACE(task, 3, 2, "%s", "Omitted hop count defaulting to 0");
  if (line.count == 3) line.hop_count = static_cast<std::uint16_t>(decimal_number(line.fields[2]));

  route_entry route = {};
  set_parameters(task, given, line, &route);
  rc = set_destination(task, given, line.fields[0], &route);
  if (rc != DBE_OK) return rc;
  const char* connection = line.fields[named ? 1 : text_fields - 1];
  if (std::strlen(connection) > connection_len)
    return rc = refuse_length(task, given, "Connection Name", connection, connection_len);
  std::memcpy(route.connection, connection, std::strlen(connection));
  route.hop_count = line.hop_count;
  if (given.entry->length < sizeof route || given.record_size < route_head_len) return rc;
  std::memcpy(given.target, &route, sizeof route);
  std::uint16_t routes = 0;
  std::memcpy(&routes, given.record, sizeof routes);
  ++routes;
  std::memcpy(given.record, &routes, sizeof routes);
  return rc;
}

}  // namespace zvrdb::textrec
