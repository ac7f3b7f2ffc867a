// A connection by exported calls: a text, in a file that is put in place of the one before.
#pragma once

#include <cstdint>
#include <string>

namespace fault_test {

constexpr char connection[] = "LINK";

bool put_connection(void* task, std::uint32_t version);
bool del_connection(void* task);
std::string observe_connection(void* task);

}  // namespace fault_test
