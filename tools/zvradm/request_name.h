// Requests and correlators as text for people:
//   SERVER.USER.SEQUENCE.RECURSION[.FUNCTION]
//   ORIGIN.YEAR/MONTH/DAY.HOUR:MINUTE:SECOND.SEQUENCE
// In the parts of a request "\." is a dot and "\\" a backslash.
#pragma once

#include <zvrdb/records.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace zvradm {

// Why something is no such text.
struct request_fault : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Whether a FUNCTION stands at the end.
enum class request_form { root, function };

// Throws request_fault.
db_rqf_id parse_request(std::string_view text, request_form form);
std::string request_text(const db_rqf_id& id, request_form form);

// The part of a correlator in a db_coo.  Throws request_fault.
db_coo parse_correlator(std::string_view text);
std::string correlator_text(const db_coo& record);

}  // namespace zvradm
