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

}  // namespace

bool request_filter::given() const {
  return sequence || recursion || !(server + user + function + domain + target + rgn + ren + object).empty();
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
        throw usage_fault(std::string("type ") + type.suffix + " has no " + name + " to filter by");
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
                  "): a name is unknown, or the filter is none: what is left open must run from the end of "
                  "server, user, sequence, recursion, function, domain, target without a gap, with a prefix "
                  "in its first part only; or all but the destination is left open");
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
