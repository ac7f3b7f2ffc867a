// Filters of request records, and the walk over what they let through.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "list_printer.h"

namespace zvradm {

// What a filter leaves open is wild.
struct request_filter {
  std::string server, user, function, domain, target, rgn, ren;  // "": left open
  std::optional<std::uint32_t> sequence;
  std::optional<std::uint16_t> recursion;
  std::string object;  // fields as a JSON object, or ""

  bool given() const;
};

bool is_request(const record_type& type);

// The fields that a list of the type is filtered by, for messages.
std::string filter_fields(const record_type& type);

// The filter as the call takes it.  Throws usage_fault for a part that the type has not.
std::vector<unsigned char> filter_bytes(const record_type& type, const request_filter& filter);

// Told each record of `length` bytes.
using request_fn = std::function<void(std::span<const unsigned char> record)>;
// Throws refusal.
void read_requests(void* task, const record_type& type, std::vector<unsigned char> filter,
                   std::uint16_t length, const request_fn& found);

}  // namespace zvradm
