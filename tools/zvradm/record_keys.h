// The key array of a call, made from the words of a command line or from a record.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "record_fields.h"

namespace zvradm {

class record_keys {
 public:
  // Throws usage_fault when the number of words or a length does not fit the type.
  record_keys(const record_type& type, const std::vector<std::string>& words);
  std::uint16_t count() const { return static_cast<std::uint16_t>(pointers_.size()); }
  const void* const* data() const { return pointers_.data(); }

 private:
  std::vector<std::vector<char>> areas_;
  std::vector<const void*> pointers_;
};

// "NAME" or "USER [SECOND [SELECTOR]]", for help texts.
std::string key_form(const record_type& type);
// `get trg "OSLO"`, for messages.
std::string call_text(const char* verb, const record_type& type, const std::vector<std::string>& words);

}  // namespace zvradm
