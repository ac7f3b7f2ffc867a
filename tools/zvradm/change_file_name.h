// Names of change files between people, JSON and the 76 bytes of the calls.
//
// For people: the tokens with dots between them; "\." is a dot inside a token, "\\" a
// backslash; a token may be empty.  In JSON: an array of the tokens.
// A name that other programs stored and that its tokens alone would not give again (gaps
// between tokens, no token at all) is told by its bytes: "\x" and 152 hexadecimal digits,
// in JSON {"hex": "..."}.  So each name that is printed can be given back.
#pragma once

#include <zvrdb/records.h>

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zvradm {

// Why something is no name of a change file, in words that tell the name where there is one.
struct name_fault : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// At most eleven tokens, which with a zero byte each take at most 65 bytes.  Throws name_fault.
db_cf_name change_file_name(const std::vector<std::string>& tokens);
// The tokens, up to the first one that is absent or begins outside the text.
std::vector<std::string> tokens_of(const db_cf_name& name);
// Whether the tokens alone give the name again, byte for byte.
bool is_plain_name(const db_cf_name& name);

// From and to the text for people.  Throws name_fault.
db_cf_name parse_change_file_name(std::string_view text);
std::string change_file_text(const db_cf_name& name);

// From and to JSON.  A token that is not UTF-8 is {"hex": "..."}.  Throws name_fault.
db_cf_name change_file_from_json(const nlohmann::ordered_json& value);
nlohmann::ordered_json change_file_json(const db_cf_name& name);

}  // namespace zvradm
