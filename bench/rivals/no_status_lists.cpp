// Where SQLite was not there when the program was built: no lists to compare with.
#include "rivals/system_workloads.h"

namespace bench {

struct StatusLists::Inside {};

bool have_status_lists() {
  return false;
}
void make_status_lists(const std::string&, const StatusTables&) {}
StatusLists::StatusLists(const std::string&) : inside_(nullptr) {}
StatusLists::~StatusLists() = default;
std::uint32_t StatusLists::by_filter(std::uint32_t*) {
  return 0;
}
std::uint32_t StatusLists::targets_of_file(unsigned char*) {
  return 0;
}
std::uint32_t StatusLists::files_of_target(std::uint32_t*) {
  return 0;
}

}  // namespace bench
