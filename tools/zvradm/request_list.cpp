#include "request_list.h"

#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <array>

#include "record_put.h"
#include "refusals.h"

namespace zvradm {

namespace {

constexpr std::uint32_t list_state_length = sizeof(db_list_state) + 76;  // with the last key
constexpr std::array request_ids{DB_RQR, DB_RQF, DB_FAN, DB_RQD, DB_RQT, DB_RQV};

json as_object(const request_filter& filter) {
  json object = filter.object.empty() ? json::object() : parse_record_line(filter.object);
  const auto add = [&](const char* field, const std::string& text) {
    if (!text.empty()) object[field] = text;
  };
  add("src_domain", filter.server);
  add("user", filter.user);
  add("subreq_id", filter.function);
  add("domain", filter.domain);
  add("target", filter.target);
  add("rgn", filter.rgn);
  add("ren", filter.ren);
  if (filter.sequence) object["seq_no"] = *filter.sequence;
  if (filter.recursion) object["recursion_no"] = *filter.recursion;
  return object;
}

// The parts of an identifier in the order of its key, with the options that filter by them.
struct id_part {
  const char* field;
  const char* option;
  bool is_target;  // the name of a target, taken whole
};
constexpr std::array id_parts{id_part{"src_domain", "--server", true},  id_part{"user", "--user", false},
                              id_part{"seq_no", "--seq", false},        id_part{"recursion_no", "--rec", false},
                              id_part{"subreq_id", "--function", false}, id_part{"domain", "--domain", true},
                              id_part{"target", "--target", true},      id_part{"rgn", "--rgn", false},
                              id_part{"ren", "--ren", false}};

const field* part_field(const record_type& type, const id_part& part) {
  for (const field& f : type.fields)
    if (std::string_view(part.field) == f.name && f.offset < int_key_len[type.db_id]) return &f;
  return nullptr;
}

std::string part_text(const field& f, const std::vector<unsigned char>& filter) {
  if (f.kind == field_kind::number)
    return load_number(filter.data() + f.offset, f.width) == (f.width == 2 ? 0xFFFFu : 0xFFFFFFFFu) ? "*" : "";
  const auto at = filter.begin() + f.offset;
  return {at, std::find(at, at + f.width, static_cast<unsigned char>(0))};
}

constexpr const char* filter_rule =
    "what is left open must run from the end of server, user, sequence, recursion, function, domain, target "
    "(fan: RGN, REN) without a gap, with a begin (AB*) in its first part only; rqd by --domain alone and rqt "
    "by --target alone list a destination";

// Why the library takes a filter for none, or knows a name in it not.
std::string reason_of_none(void* task, const record_type& type, const std::vector<unsigned char>& filter) {
  const id_part* open = nullptr;
  bool begin = false;  // open but for its begin
  for (const id_part& part : id_parts) {
    const field* f = part_field(type, part);
    if (!f) continue;
    const std::string text = part_text(*f, filter);
    std::uint32_t number = 0;
    if (part.is_target && text != "*" && db_get_trg_index(task, text.c_str(), &number) == DBE_NO_TARGET)
      return std::string("there is no target \"") + text + "\" (" + part.option + ")" +
             (text.find('*') == std::string::npos ? "" : "; a begin is taken of user, function, RGN and REN only");
  }
  for (const id_part& part : id_parts) {
    const field* f = part_field(type, part);
    if (!f) continue;
    const std::string text = part_text(*f, filter);
    if (open && text != "*")
      return std::string(part.option) + " is given, and " + open->option + " before it is " +
             (begin ? "a begin only" : "left open") + "; " + filter_rule;
    if (!open && text.find('*') != std::string::npos) {
      open = &part;
      begin = text != "*";
    }
  }
  return "a name is unknown, or the filter is none; " + std::string(filter_rule);
}

}  // namespace

bool request_filter::given() const {
  return sequence || recursion || !(server + user + function + domain + target + rgn + ren + object).empty();
}

std::string filter_fields(const record_type& type) {
  std::string names;
  for (const id_part& part : id_parts)
    if (part_field(type, part)) names += std::string(names.empty() ? "" : ", ") + part.field;
  return names;
}

bool is_request(const record_type& type) {
  return std::find(request_ids.begin(), request_ids.end(), type.db_id) != request_ids.end();
}

std::vector<unsigned char> filter_bytes(const record_type& type, const request_filter& filter) {
  // As long as a record, so that any field may be named; what is no part of the
  // identifier is refused below.
  std::vector<unsigned char> bytes(65535);
  const auto wild = [&](const field& f) {
    return f.offset < int_key_len[type.db_id] && f.kind != field_kind::hex;
  };
  for (const field& f : type.fields) {
    if (!wild(f)) continue;
    if (f.kind == field_kind::number)
      store_number(bytes.data() + f.offset, f.width, 0xFFFFFFFFu);
    else
      bytes[f.offset] = '*';
  }
  try {
    const json object = as_object(filter);
    for (const auto& [name, value] : object.items()) {
      const auto found = std::find_if(type.fields.begin(), type.fields.end(),
                                      [&wanted = name](const field& f) { return wanted == f.name; });
      if (found == type.fields.end() || !wild(*found))
        throw usage_fault(std::string("type ") + type.suffix + " has no " + name + " to filter by; there are " +
                          filter_fields(type));
    }
    json_to_record(type, object, bytes);
  } catch (const field_fault& fault) {
    throw usage_fault("filter: " + (fault.path.empty() ? "" : fault.path + ": ") + fault.what());
  }
  return bytes;
}

void read_requests(void* task, const record_type& type, std::vector<unsigned char> filter,
                   std::uint16_t length, const request_fn& found) {
  const std::string what = std::string("list ") + type.suffix;
  std::array<unsigned char, list_state_length> state{};
  std::int16_t code = db_init_list(task, type.db_id, filter.data(), state.data(), list_state_length);
  if (code == DBE_EMPTY_LIST)
    throw refusal(what + ": " + code_name(code) + " (" + std::to_string(code) +
                  "): " + reason_of_none(task, type, filter));
  require_ok(what, code);
  std::vector<unsigned char> record(65535);
  for (;;) {
    std::fill_n(record.begin(), length, static_cast<unsigned char>(0));
    code = db_get_more(task, type.db_id, state.data(), record.data(), length);
    if (code == DBE_END_OF_LIST) return;
    require_ok(what, code);
    found({record.data(), length});
  }
}

}  // namespace zvradm
