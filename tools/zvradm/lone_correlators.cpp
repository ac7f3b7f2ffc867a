#include "lone_correlators.h"

#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <cstring>
#include <filesystem>
#include <unordered_set>

#include "engine/file_report.h"

namespace zvradm {

namespace {

using zvrdb::engine::dump_entry;
using zvrdb::engine::file_header;
using zvrdb::engine::report_outcome;

// Key 1 of both files in the file, behind a byte that tells its length; numbers in network
// order.  The request with its function stands in both in the same form.
constexpr std::size_t length_byte = 1, type_length = 4, request_length = 44, correlator_key = 48,
                      request_key = 76;
constexpr std::size_t user_at = 4, sequence_at = 20, recursion_at = 24, function_at = 28, text_length = 16;

std::uint32_t network_number(const unsigned char* at) {
  return static_cast<std::uint32_t>(at[0]) << 24 | static_cast<std::uint32_t>(at[1]) << 16 |
         static_cast<std::uint32_t>(at[2]) << 8 | at[3];
}

std::string request_of(const unsigned char* at) {
  return {reinterpret_cast<const char*>(at), request_length};
}

std::string text_at(const std::string& request, std::size_t at) {
  const std::string field = request.substr(at, text_length);
  return field.substr(0, field.find('\0'));
}

bool keep_header(void*, const file_header&) {
  return true;
}

bool keep_function(void* context, const dump_entry& entry) {
  if (entry.key != 1 || entry.value.size() < length_byte + request_key) return true;
  const unsigned char* key = entry.value.data() + length_byte;
  if (network_number(key) == DB_RQF)
    static_cast<std::unordered_set<std::string>*>(context)->insert(request_of(key + type_length));
  return true;
}

bool keep_correlator(void* context, const dump_entry& entry) {
  if (entry.key == 1 && entry.value.size() >= length_byte + correlator_key)
    static_cast<std::vector<std::string>*>(context)->push_back(request_of(entry.value.data() + length_byte));
  return true;
}

// The generator remembers itself by a correlator of no user and no function.
bool is_of_generator(const std::string& request) {
  return request[user_at] == 0 && request[function_at] == 0;
}

std::string told(const std::string& request) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(request.data());
  return "a correlator without its function: server number " + std::to_string(network_number(bytes)) +
         ", user " + text_at(request, user_at) + ", sequence " +
         std::to_string(network_number(bytes + sequence_at)) + ", recursion " +
         std::to_string(network_number(bytes + recursion_at)) + ", function " +
         text_at(request, function_at);
}

}  // namespace

std::vector<std::string> lone_correlators(const std::string& file) {
  namespace fs = std::filesystem;
  const fs::path path = file;
  const fs::path requests = path.parent_path() / "userreq";
  std::error_code failed;
  if (path.filename() != "snacorr" || !fs::is_regular_file(requests, failed)) return {};
  std::unordered_set<std::string> functions;
  std::vector<std::string> correlators;
  std::string reason;
  if (zvrdb::engine::dump_file(requests.c_str(), keep_header, keep_function, &functions, &reason) !=
          report_outcome::sound ||
      zvrdb::engine::dump_file(path.c_str(), keep_header, keep_correlator, &correlators, &reason) !=
          report_outcome::sound)
    return {"not compared with " + requests.string() + ": one of the two is not readable as a whole"};
  std::vector<std::string> lines;
  for (const std::string& request : correlators)
    if (!is_of_generator(request) && functions.count(request) == 0) lines.push_back(told(request));
  return lines;
}

}  // namespace zvradm
