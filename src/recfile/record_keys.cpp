// Layout of every record key, as tables: what convert_key_nbo swaps and what
// trace_key prints come from the same rows.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <span>

#include "memory/trace.h"
#include "recfile/recfile.h"

extern "C" {
// Entry db_id: how much of the internal record its key alone can fill.
const uint32_t int_key_len[DB_TYPE_COUNT] = {
    0,   0,   0,   0,                     // 0 to 3: text records
    64,  64,  64,  0,   0,   102, 0, 64,  // 4 to 11
    0,   0,   0,   0,   0,                // 12 to 16: not assigned
    88,  104, 120, 168, 232,              // 17 to 21: user requests
    20,  16,  12,  12,  80,  80,          // 22 to 27
    124, 124, 616, 64,  64,  0,           // 28 to 33
};
}

namespace zvrdb::recfile {
namespace {

enum class field_type : std::uint8_t {
  number,        // u32, network order in the file
  short_number,  // u16, network order in the file
  piece_number,  // u32, the host's order everywhere
  year,          // u16, the host's order everywhere
  text,
  byte
};

struct key_field {
  const char* name;
  std::uint16_t offset;
  std::uint16_t width;
  field_type type;
};

constexpr key_field target_config_key[] = {
    {"DAS identifier", 0, 4, field_type::number},
    {"Target number", 4, 4, field_type::number},
    {"Recnum", 8, 4, field_type::piece_number},
};
constexpr key_field cm_status_key[] = {
    {"Record type", 0, 4, field_type::number},
    {"TRG/CAT number", 4, 4, field_type::number},
    {"Recnum", 8, 4, field_type::piece_number},
};
constexpr key_field target_group_key[] = {
    {"DAS identifier", 0, 4, field_type::number},
    {"Group name", 4, 64, field_type::text},
    {"Recnum", 68, 4, field_type::piece_number},
};
constexpr key_field catalog_key[] = {
    {"DAS identifier", 0, 4, field_type::number},   {"CF number", 4, 2, field_type::short_number},
    {"Product ID", 6, 2, field_type::short_number}, {"Fileset ID", 8, 2, field_type::short_number},
    {"Recnum", 12, 4, field_type::piece_number},
};
constexpr key_field user_key[] = {
    {"DAS identifier", 0, 4, field_type::number},
    {"User name", 4, 16, field_type::text},
    {"Recnum", 20, 4, field_type::piece_number},
};
constexpr key_field profile_key[] = {
    {"DAS identifier", 0, 4, field_type::number},
    {"Profile name", 4, 16, field_type::text},
    {"Recnum", 20, 4, field_type::piece_number},
};
constexpr key_field user_request_key[] = {
    {"DAS identifier", 0, 4, field_type::number}, {"Source domain", 4, 4, field_type::number},
    {"UserID", 8, 16, field_type::text},          {"Sequence", 24, 4, field_type::number},
    {"Recursion", 28, 4, field_type::number},     {"Function", 32, 16, field_type::text},
    {"Fanout_Server", 48, 16, field_type::text},  {"ServerID", 64, 4, field_type::number},
    {"TargetID", 68, 4, field_type::number},      {"Recnum", 72, 4, field_type::piece_number},
};
constexpr key_field correlator_key[] = {
    {"Origin domain", 0, 4, field_type::number},   {"UserID", 4, 16, field_type::text},
    {"Int seq_no", 20, 4, field_type::number},     {"Recursion", 24, 4, field_type::number},
    {"Function", 28, 16, field_type::text},        {"Recnum", 44, 4, field_type::piece_number},
    {"SNA Origin", 48, 64, field_type::text},      {"SNA Date year", 112, 2, field_type::year},
    {"SNA Date month", 114, 1, field_type::byte},  {"SNA Date day", 115, 1, field_type::byte},
    {"SNA Time hour", 116, 1, field_type::byte},   {"SNA Time minute", 117, 1, field_type::byte},
    {"SNA Time second", 118, 1, field_type::byte}, {"SNA Time GMT flag", 119, 1, field_type::byte},
    {"SNA seq_no", 120, 4, field_type::number},
};

struct key_layout {
  const char* heading;
  std::span<const std::uint32_t> db_ids;
  std::span<const key_field> fields;
};

constexpr std::uint32_t target_config_ids[] = {4, 5, 11, 32};
constexpr std::uint32_t cm_status_ids[] = {10};
constexpr std::uint32_t target_group_ids[] = {6, 31};
constexpr std::uint32_t catalog_ids[] = {9, 26, 27};
constexpr std::uint32_t user_ids[] = {22};
constexpr std::uint32_t profile_ids[] = {23, 24, 25};
constexpr std::uint32_t user_request_ids[] = {17, 18, 19, 20, 21, 30};
constexpr std::uint32_t correlator_ids[] = {28, 29};

constexpr std::array key_layouts = std::to_array<key_layout>({
    {"Target Config", target_config_ids, target_config_key},
    {"CM Status", cm_status_ids, cm_status_key},
    {"Target Group", target_group_ids, target_group_key},
    {"Dist Cat", catalog_ids, catalog_key},
    {"Users", user_ids, user_key},
    {"Profiles", profile_ids, profile_key},
    {"User Request", user_request_ids, user_request_key},
    {"Correlators", correlator_ids, correlator_key},
});

// Each key within the area that every caller must give, and none overlapping.
constexpr bool layouts_hold() {
  for (const key_layout& layout : key_layouts) {
    std::uint32_t end = 0;
    for (const key_field& field : layout.fields) {
      if (field.offset < end || field.offset + field.width > max_key_len) return false;
      end = static_cast<std::uint32_t>(field.offset) + field.width;
    }
  }
  return true;
}
static_assert(layouts_hold());

const key_layout* layout_of(std::uint32_t db_id) {
  for (const key_layout& layout : key_layouts)
    if (std::find(layout.db_ids.begin(), layout.db_ids.end(), db_id) != layout.db_ids.end()) return &layout;
  return nullptr;
}

// The reversal is the same in both directions; on a big-endian host there is none.
void to_or_from_network([[maybe_unused]] unsigned char* at, [[maybe_unused]] std::uint16_t width) {
  if constexpr (std::endian::native == std::endian::little) std::reverse(at, at + width);
}

std::uint32_t load_native(const unsigned char* at, std::uint16_t width) {
  std::uint32_t wide = 0;
  std::uint16_t narrow = 0;
  if (width == sizeof wide) {
    std::memcpy(&wide, at, sizeof wide);
    return wide;
  }
  if (width == sizeof narrow) {
    std::memcpy(&narrow, at, sizeof narrow);
    return narrow;
  }
  return *at;
}

}  // namespace

void convert_key_nbo(void* task, std::uint32_t db_id, void* key, std::int16_t direction) {
  const trace_bracket bracket(task, __func__);
  ZVR_TRACE(task, 1, 2, "Converting %s NBO, db_ib is %lu", direction == to_network ? "To" : "From",
            static_cast<unsigned long>(db_id));
  const key_layout* layout = layout_of(db_id);
  if (!layout) {
    ZVR_TRACE(task, 1, 2, "No conversion needed for db_id %lu", static_cast<unsigned long>(db_id));
    return;
  }
  auto* bytes = static_cast<unsigned char*>(key);
  for (const key_field& field : layout->fields)
    if (field.type == field_type::number || field.type == field_type::short_number)
      to_or_from_network(bytes + field.offset, field.width);
}

void trace_key(void* task, std::uint32_t db_id, const void* key) {
  if (!co_trc_test(task, 0, 2)) return;
  const trace_bracket bracket(task, __func__);
  const key_layout* layout = layout_of(db_id);
  if (!layout) return;
  const auto* bytes = static_cast<const unsigned char*>(key);
  co_trc2(task, 0, 2, __func__, " Key contents for %s", layout->heading);
  for (const key_field& field : layout->fields) {
    if (field.type == field_type::text)
      co_trc2(task, 0, 2, __func__, "     %-14s = %.*s", field.name, static_cast<int>(field.width),
              reinterpret_cast<const char*>(bytes + field.offset));
    else
      co_trc2(task, 0, 2, __func__, "     %-14s = %lu", field.name,
              static_cast<unsigned long>(load_native(bytes + field.offset, field.width)));
  }
}

}  // namespace zvrdb::recfile
