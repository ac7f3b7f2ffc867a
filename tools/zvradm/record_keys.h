// The key array of a call, made from the words of a command line or from a record.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "record_fields.h"

namespace zvradm {

class record_keys {
 public:
  // Throws usage_fault when the number of words, a length or a name does not fit the type.
  record_keys(const record_type& type, const std::vector<std::string>& words);
  // The keys that a record to put bears; its length is that of a put or more.
  record_keys(const record_type& type, std::span<const unsigned char> record);
  std::uint16_t count() const { return static_cast<std::uint16_t>(pointers_.size()); }
  const void* const* data() const { return pointers_.data(); }
  // As words of a command line.
  const std::vector<std::string>& words() const { return words_; }

 private:
  void add(const key_part& part, const std::vector<unsigned char>& bytes);
  void point();

  std::vector<std::vector<unsigned char>> areas_;
  std::vector<const void*> pointers_;
  std::vector<std::string> words_;
};

// "NAME" or "USER [SECOND [SELECTOR]]", for help texts.
std::string key_form(const record_type& type);
// `get trg "OSLO"`, for messages.
std::string call_text(const char* verb, const record_type& type, const std::vector<std::string>& words);

// The name of a change file as a command line gives it.  Throws usage_fault.
db_cf_name change_file_argument(const std::string& text);

}  // namespace zvradm
