// The records of the crash scripts, by exported calls.
#pragma once

#include <cstdint>
#include <string>

namespace crash_test {

bool put_target(void* task, const std::string& name, const std::string& description, bool local = true);
bool del_target(void* task, const std::string& name);
// A shadow record with so many parameters: 10 make one piece in the file, 1000 make four.
bool put_shadow(void* task, const std::string& target, unsigned parameters, unsigned seed);
bool del_shadow(void* task, const std::string& target);
bool put_parameters(void* task, const std::string& target, unsigned parameters, unsigned seed);
bool put_hardware(void* task, const std::string& target, unsigned seed);
bool put_change_file(void* task, const std::string& dotted);
bool del_change_file(void* task, const std::string& dotted);
bool put_status(void* task, const std::string& target, const std::string& change_file, unsigned status);
bool del_status(void* task, const std::string& target, const std::string& change_file);
// A request with two functions, each with two targets, fanout and vector; each function has a
// correlator.
bool put_request(void* task, std::uint32_t sequence);
// The root record alone.
bool put_request_root(void* task, std::uint32_t sequence);
bool has_request_root(void* task, std::uint32_t sequence);
bool del_request(void* task, std::uint32_t sequence);

// Some records of each kind, for scripts to begin with: targets LOCAL, SRC, SRV, T1 and T2, change
// files APP.ONE.REF.1 and APP.TWO.REF.1 with their status, requests 1 and 2.
bool put_start(void* task);
// Target NEW comes, T1 is changed and T2 loses its shadow; committed, or rolled back.
bool explicit_transaction(void* task, bool keep);

}  // namespace crash_test
