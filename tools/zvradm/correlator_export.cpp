#include "correlator_export.h"

#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "engine/file_report.h"
#include "refusals.h"
#include "request_name.h"
#include "target_list.h"

namespace zvradm {

namespace {

using zvrdb::engine::dump_entry;
using zvrdb::engine::file_header;
using zvrdb::engine::report_outcome;

// Key 1 in the file, behind a byte that tells its length; numbers in network order.
constexpr std::size_t key_length = 48, server_at = 1, user_at = 5, sequence_at = 21, recursion_at = 25,
                      function_at = 29;

std::uint32_t network_number(const std::vector<unsigned char>& bytes, std::size_t at) {
  return static_cast<std::uint32_t>(bytes[at]) << 24 | static_cast<std::uint32_t>(bytes[at + 1]) << 16 |
         static_cast<std::uint32_t>(bytes[at + 2]) << 8 | bytes[at + 3];
}

using keys = std::vector<std::vector<unsigned char>>;

bool keep_header(void*, const file_header&) {
  return true;
}

bool keep_key(void* context, const dump_entry& entry) {
  if (entry.key == 1 && entry.value.size() > key_length) static_cast<keys*>(context)->push_back(entry.value);
  return true;
}

keys read_keys(const std::string& file) {
  keys found;
  std::string reason;
  if (zvrdb::engine::dump_file(file.c_str(), keep_header, keep_key, &found, &reason) != report_outcome::sound)
    throw refusal(file + ": not readable as a whole" + (reason.empty() ? "" : ": " + reason) +
                  "; 'zvradm file check --deep' tells more");
  return found;
}

}  // namespace

std::vector<db_coo> read_correlators(void* task, const std::string& base) {
  std::map<std::uint32_t, std::string> names;
  for (const numbered_target& target : list_numbered_targets(task, "export coo"))
    names[target.number] = target.name;
  std::vector<db_coo> records;
  for (const std::vector<unsigned char>& key : read_keys(base + "/db/snacorr")) {
    db_rqf_id id{};
    const std::string& server = names[network_number(key, server_at)];
    std::memcpy(id.request.src_domain, server.data(),
                std::min(server.size(), sizeof id.request.src_domain - 1));
    std::memcpy(id.request.user, key.data() + user_at, sizeof id.request.user);
    id.request.seq_no = network_number(key, sequence_at);
    id.request.recursion_no = static_cast<std::uint16_t>(network_number(key, recursion_at));
    std::memcpy(id.subreq_id, key.data() + function_at, sizeof id.subreq_id);
    if (id.request.user[0] == 0 && id.subreq_id[0] == 0) continue;
    const void* call_keys[] = {&id};
    db_coo record{};
    const std::int16_t code = db_get(task, DB_COO, 1, call_keys, &record, sizeof record);
    if (code == DBE_NOT_FOUND) continue;  // deleted meanwhile
    require_ok("export coo \"" + request_text(id, request_form::function) + "\"", code);
    records.push_back(record);
  }
  return records;
}

}  // namespace zvradm
