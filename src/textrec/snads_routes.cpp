// SNADS routes: through which connection each destination is reached.
#include <algorithm>
#include <cstring>

#include "memory/trace.h"
#include "textrec/keyword_tables.h"
#include "textrec/parsed_files.h"
#include "textrec/record_defaults.h"
#include "textrec/record_printers.h"
#include "textrec/route_entry.h"
#include "textrec/text_records.h"
#include "textrec/text_writer.h"

namespace zvrdb::textrec {
namespace {

constexpr char file_name[] = "routetab";
constexpr std::uint32_t protocol_offset = 2;
constexpr unsigned char tcpip = 2;

struct route_head {
  std::uint16_t count;
  std::uint16_t protocol;
};
static_assert(sizeof(route_head) == route_head_len);
static_assert(rte_record_len == route_head_len + most_routes * sizeof(route_entry));

// Two of these words cannot be read back, and "BOTH" has none: so is the format.
const char* protocol_word(std::uint16_t protocol) {
  switch (protocol) {
    case tcpip:
      return "TCP/IP";
    case 4:
      return "IPX";
    case 5:
      return "NBI";
    default:
      return "APPC";
  }
}

void print_route(void* task, text_writer& out, const route_entry& route) {
  out.print("%s.%s  ", field_text(route.rgn).text, field_text(route.ren).text);
  for (unsigned i = 0; i < service_parameter_count; ++i)
    out.print("%s  ", rte_num_to_str(task, service_parameters[i], route.parameters[i]));
  out.print("%s  ", field_text(route.connection, sizeof route.connection - 1).text);
  out.print("%hd\n\n", static_cast<short>(route.hop_count));
}

}  // namespace

std::int32_t unparse_rte(void* task, char* text, const void* record, std::uint32_t record_len) {
  const trace_bracket bracket(task, __func__);
  const auto* bytes = static_cast<const unsigned char*>(record);
  route_head head = {};
  std::memcpy(&head, bytes, std::min<std::size_t>(record_len, sizeof head));
  const std::uint32_t whole =
      record_len < route_head_len
          ? 0
          : static_cast<std::uint32_t>((record_len - route_head_len) / sizeof(route_entry));
  const std::uint32_t count = std::min({std::uint32_t{head.count}, whole, most_routes});
  text_writer out(text);
  out.print("NETWORK PROTOCOL:         %s\n", protocol_word(head.protocol));
  for (std::uint32_t i = 0; i < count && out.length() >= 0; ++i) {
    route_entry route;
    std::memcpy(&route, bytes + route_head_len + i * sizeof route, sizeof route);
    print_route(task, out, route);
  }
  return out.length();
}

std::int16_t get_rte(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  rc = get_parsed(task, {DB_RTE, file_name, 0, rte_keywords}, num_keys, keys, record, record_len);
  if (default_word(record, record_len, protocol_offset, tcpip))
    ZVR_TRACE(task, 3, 2, "%s", "setting NETWORK TYPE to default TCP/IP");
  return rc;
}

std::int16_t put_rte(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = put_parsed(task, file_name, num_keys, keys, unparse_rte, record, record_len);
}

}  // namespace zvrdb::textrec
