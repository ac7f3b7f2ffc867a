// Where LMDB is not there to compare with.
#include "rivals/system_workloads.h"

namespace bench {

struct TargetNames::Inside {};

bool have_target_names() {
  return false;
}
void make_target_names(const std::string&, std::uint32_t, std::string (*)(std::uint32_t)) {}
TargetNames::TargetNames(const std::string&) : inside_(nullptr) {}
TargetNames::~TargetNames() = default;
bool TargetNames::get(const std::string&, unsigned char*, std::size_t) {
  return false;
}

}  // namespace bench
