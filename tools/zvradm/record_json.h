// Records as JSON objects and back, by the rows of a record type.
//
// Text is a string; text that is not UTF-8 is {"hex": "..."}.  Numbers are numbers;
// where a row has words, input may use them instead, and for a bit set a list of
// them.  Opaque bytes are hexadecimal text; shorter input is filled with zero bytes.
// The name of a change file is the list of its tokens.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "record_fields.h"

namespace zvradm {

using json = nlohmann::ordered_json;

// What is wrong with a JSON record, and with which field ("hw_parms[3].name"; "" for
// the record as a whole).
struct field_fault : std::runtime_error {
  field_fault(std::string field_path, const std::string& text)
      : std::runtime_error(text), path(std::move(field_path)) {}
  std::string path;
};

struct print_options {
  bool words = false;         // numbers that have words as words
  bool transferable = false;  // for export: no live fields, and no fields that are zero
};

// The fields that lie whole within the bytes given.
json record_to_json(const record_type& type, std::span<const unsigned char> record,
                    const print_options& options = {});

// Writes the fields given over the record, which has the length of a put or more;
// all others stay as they are.  A member "type" must be the suffix.  Throws
// field_fault.
void json_to_record(const record_type& type, const json& object, std::span<unsigned char> record);

// One line of JSON, UTF-8, without line end.
std::string json_line(const json& value);

std::string to_hex(std::span<const unsigned char> bytes);
// False when the text is not an even number of hexadecimal digits.
bool from_hex(std::string_view digits, std::vector<unsigned char>& out);
bool is_utf8(std::string_view text);

// A number of native order of 1, 2 or 4 bytes.
std::uint32_t load_number(const unsigned char* at, std::uint32_t width);
void store_number(unsigned char* at, std::uint32_t width, std::uint32_t value);

// "40" or "0x28", or words joined by ',' or '+'.  Throws usage_fault that names the option.
std::uint32_t parse_bits(const std::string& option, const std::string& text, std::span<const word> words);
// The words of a number, joined by '+' for a bit set; the number where no word fits.
std::string words_of(const field& f, std::uint32_t value);

}  // namespace zvradm
