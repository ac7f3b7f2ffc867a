#include "requests/request_parts.h"

#include <algorithm>
#include <array>

#include "keyed/converters.h"

namespace zvrdb::requests {
namespace {

constexpr request_part source = {wild_source, part_kind::name, 16, 64, 4, 4, "source server"};
constexpr request_part user = {wild_user, part_kind::text, 0, 16, 8, 16, "user"};
constexpr request_part sequence = {wild_sequence, part_kind::sequence, 80, 4, 24, 4, "sequence"};
constexpr request_part recursion = {wild_recursion, part_kind::recursion, 84, 2, 28, 4, "recursion"};
// The fanout server, empty in all but fanout records, is bound with the function.
constexpr request_part function = {wild_function, part_kind::text, 88, 16, 32, 32, "subreq_id"};
constexpr request_part function_before_fanout = {wild_function, part_kind::text, 88, 16, 32, 16, "subreq_id"};
constexpr request_part rgn = {wild_rgn, part_kind::fanout_text, 104, 8, 48, 8, "fanout RGN"};
constexpr request_part ren = {wild_ren, part_kind::fanout_text, 112, 8, 56, 8, "fanout REN"};
constexpr request_part server = {wild_server, part_kind::name, 104, 64, 64, 4, "destination domain"};
constexpr request_part target = {wild_target, part_kind::name, 168, 64, 68, 4, "destination target"};

constexpr request_part root_parts[] = {source, user, sequence, recursion};
constexpr request_part function_parts[] = {source, user, sequence, recursion, function};
constexpr request_part fanout_parts[] = {source, user, sequence, recursion, function_before_fanout, rgn, ren};
constexpr request_part domain_parts[] = {source, user, sequence, recursion, function, server};
constexpr request_part target_parts[] = {source, user, sequence, recursion, function, server, target};

constexpr std::uint16_t by_server = 2;  // keys of the file
constexpr std::uint16_t by_target = 3;

constexpr std::array request_types = std::to_array<request_type>({
    {DB_RQR, sizeof(db_rqr_id), root_parts, 0},
    {DB_RQF, sizeof(db_rqf_id), function_parts, 0},
    {DB_FAN, sizeof(db_fan_id), fanout_parts, 0},
    {DB_RQD, sizeof(db_rqd_id), domain_parts, by_server},
    {DB_RQT, sizeof(db_rqt_id), target_parts, by_target},
    {DB_RQV, sizeof(db_rqf_id), function_parts, 0},
});

// Each part lies in the identifier, and each begins in the key where the one before ends,
// but for the fanout server that stands empty.
constexpr bool parts_fit(const request_type& type) {
  unsigned end = sizeof(type.db_id);
  for (const request_part& part : type.parts) {
    if (part.id_offset + part.id_width > type.id_len || part.key_offset != end) return false;
    end = part.key_offset + part.key_width;
  }
  return end < request_key_len;
}
static_assert(std::all_of(request_types.begin(), request_types.end(), parts_fit));

}  // namespace

const request_type* request_type_of(std::uint32_t db_id) {
  const auto* found = std::find_if(request_types.begin(), request_types.end(),
                                   [&](const request_type& type) { return type.db_id == db_id; });
  return found == request_types.end() ? nullptr : found;
}

std::int16_t build_request_key(void* task, std::uint32_t db_id, const void* identifier, std::uint32_t id_len,
                               unsigned char (&key)[request_key_len]) {
  keyed::external_sink to = {key, key + request_key_len};
  return keyed::unprs_ur_key(task, db_id, nullptr, &to,
                             {static_cast<const unsigned char*>(identifier), id_len});
}

std::span<const unsigned char> part_text(const request_part& part, const void* identifier) {
  const auto* text = static_cast<const unsigned char*>(identifier) + part.id_offset;
  const unsigned char* end = std::find(text, text + part.id_width, 0);
  return {text, end};
}

}  // namespace zvrdb::requests
