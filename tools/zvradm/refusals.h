// How a subcommand ends: exit codes, and the two ways to give up.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace zvradm {

enum exit_code { exit_done = 0, exit_refused = 1, exit_usage = 2 };

// The library (or the system) refused; the text says what, where and what to do.
struct refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The command line asks for something that cannot be.
struct usage_fault : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// "DBE_NOT_FOUND"; "UNKNOWN" for a number outside the table.
const char* code_name(std::int16_t code);
// One sentence on what the code means to an administrator.
const char* code_meaning(std::int16_t code);
// A record was put: new or in place of an older one.
bool is_stored(std::int16_t code);

// "WHAT: DBE_NOT_FOUND (8194): no such record"
refusal library_refusal(const std::string& what, std::int16_t code);
// Throws library_refusal unless the code is 0.
void require_ok(const std::string& what, std::int16_t code);

}  // namespace zvradm
