#include "target_list.h"

#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <cstring>

#include "refusals.h"

namespace zvradm {

namespace {

constexpr std::size_t name_width = sizeof(db_trg::trg_name);
constexpr std::size_t first_area = 1024;  // names
constexpr std::size_t most_names = 65535;

std::vector<std::string> list_names(void* task, const std::string& what) {
  for (std::size_t room = first_area;; room = std::min(room * 4, most_names)) {
    std::vector<char> list(room * name_width);
    std::uint16_t count = 0, index = 0;
    const std::int16_t code = db_start_list(task, DB_TRG, nullptr, list.data(),
                                            static_cast<std::uint32_t>(list.size()), &count, &index);
    if (code == DBE_LIST_TOO_SMALL && room < most_names) continue;
    if (code == DBE_LIST_TOO_SMALL) throw refusal(what + ": there are more targets than one list holds");
    require_ok(what, code);
    std::vector<std::string> names;
    for (std::size_t i = 0; i < count; ++i) {
      const char* name = list.data() + i * name_width;
      names.emplace_back(name, strnlen(name, name_width));
    }
    return names;
  }
}

}  // namespace

std::vector<numbered_target> list_numbered_targets(void* task, const std::string& what) {
  std::vector<numbered_target> targets;
  for (std::string& name : list_names(task, what)) {
    std::uint32_t number = 0;
    const std::int16_t code = db_get_trg_index(task, name.c_str(), &number);
    if (code == DBE_NO_TARGET || code == DBE_NO_STATUS) continue;  // deleted meanwhile
    require_ok(what, code);
    targets.push_back({std::move(name), number});
  }
  return targets;
}

}  // namespace zvradm
