#include "text_round_trip.h"

#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "text_types.h"
#include "textrec/parse.h"
#include "textrec/parsed_files.h"
#include "textrec/record_printers.h"

namespace zvradm {

namespace {

namespace text = zvrdb::textrec;

struct printer_row {
  std::uint32_t db_id;
  std::int32_t (*print)(void* task, char* text, const void* record, std::uint32_t record_len);
};
constexpr std::array printers{printer_row{DB_SCN, text::unparse_scn}, printer_row{DB_SCF, text::unparse_scf},
                              printer_row{DB_RTE, text::unparse_rte}, printer_row{DB_UCF, text::unparse_ucf}};

using bytes = std::span<const unsigned char>;

bool is_zero(bytes value) {
  return std::all_of(value.begin(), value.end(), [](unsigned char b) { return b == 0; });
}

bool same_value(const field& f, bytes a, bytes b) {
  if (f.kind == field_kind::number) return load_number(a.data(), f.width) == load_number(b.data(), f.width);
  const auto length = [](bytes value) { return std::find(value.begin(), value.end(), 0) - value.begin(); };
  return length(a) == length(b) && std::equal(a.begin(), a.begin() + length(a), b.begin());
}

// Fields that some texts have no line for, by the book: of an APPC connection what belongs
// to other protocols, which a get fills in by itself.  BOTH is always written as APPC.
bool may_go(const record_type& type, const field& f) {
  const std::string_view name = f.name;
  return (type.db_id == DB_SCN && (name == "remote_server" || name == "tcpip_time_out")) ||
         (type.db_id == DB_RTE && name == "network_protocol");
}

// The fault of a value that comes back as another.
[[noreturn]] void refuse(const std::string& path, const field& f, bytes back) {
  if (is_zero(back) && (path == "send_tp" || path == "receive_tp"))
    throw field_fault(path, "is kept for \"protocol\":\"APPC\" only");
  if (f.kind == field_kind::number)
    throw field_fault(path, "its text would be read as " + std::to_string(load_number(back.data(), f.width)));
  const auto end = std::find(back.begin(), back.end(), 0);
  throw field_fault(path, "its text would be read as \"" + std::string(back.begin(), end) + "\"");
}

void compare_field(const record_type& type, const field& f, bytes given, bytes back) {
  const bytes a = given.subspan(f.offset, f.width), b = back.subspan(f.offset, f.width);
  if (is_zero(a) || same_value(f, a, b)) return;  // nothing was asked for
  if (may_go(type, f)) {
    if (is_zero(b) || f.kind == field_kind::number) return;
  }
  refuse(f.name, f, b);
}

// A word of a line that is empty leaves its place to the next one, so texts are compared
// even when they are empty.
void compare_list(const field& f, bytes given, bytes back) {
  const auto count_of = [&](bytes record) {
    return std::min(load_number(record.data() + f.count_at, 2), f.capacity);
  };
  const std::uint32_t count = count_of(given);
  for (std::uint32_t i = 0; i < count; ++i)
    for (const field& part : f.elements) {
      const std::size_t at = f.offset + std::size_t{i} * f.width + part.offset;
      const bytes a = given.subspan(at, part.width), b = back.subspan(at, part.width);
      const std::string path = std::string(f.name) + "[" + std::to_string(i) + "]." + part.name;
      if (i >= count_of(back)) throw field_fault(path, "its text would not be read as a route");
      if (part.kind == field_kind::number && is_zero(a)) continue;
      if (!same_value(part, a, b)) refuse(path, part, b);
    }
}

struct first_fault {
  std::string reason;
};

void keep_reason(void* context, std::uint32_t, std::uint32_t, const char* reason) {
  auto* fault = static_cast<first_fault*>(context);
  if (fault->reason.empty()) fault->reason = reason;
}

}  // namespace

void require_text_keeps(void* task, const record_type& type, const json& given, bytes record) {
  const auto printer = std::find_if(printers.begin(), printers.end(),
                                    [&](const printer_row& row) { return row.db_id == type.db_id; });
  const text_type* lines = find_text_type(type.suffix);
  if (printer == printers.end() || !lines) return;
  std::vector<char> printed(text::text_size_max + 2);
  const std::int32_t length = printer->print(task, printed.data(), record.data(), type.put_length);
  if (length < 0)
    throw field_fault("", "as text it is longer than the " + std::to_string(text::text_size_max) +
                              " bytes of a put; 'zvradm edit " + type.suffix + "' takes a longer one");
  printed[static_cast<std::size_t>(length)] = '\n';
  printed[static_cast<std::size_t>(length) + 1] = 0;
  std::vector<unsigned char> back(std::max<std::size_t>(record.size(), lines->record_length));
  first_fault fault;
  const std::int16_t code = text::parse_checking(task, type.db_id, "", lines->keywords, printed.data(), back.data(),
                                                 lines->record_length, {keep_reason, &fault});
  for (const field& f : type.fields) {
    if (!given.contains(f.name) || (!type.keys.empty() && &f == &type.fields.front())) continue;
    if (f.kind == field_kind::list)
      compare_list(f, record, back);
    else
      compare_field(type, f, record, back);
  }
  if (code != DBE_OK) throw field_fault("", "its text could not be read back: " + fault.reason);
}

}  // namespace zvradm
