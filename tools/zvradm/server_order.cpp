#include "server_order.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace zvradm {

std::vector<std::size_t> servers_first(const std::vector<ordered_target>& targets) {
  std::unordered_map<std::string_view, std::size_t> position;
  for (std::size_t i = 0; i < targets.size(); ++i) position.emplace(targets[i].json_name, i);
  std::vector<std::size_t> order;
  order.reserve(targets.size());
  std::vector<bool> taken(targets.size(), false);
  std::vector<std::size_t> chain;
  for (std::size_t i = 0; i < targets.size(); ++i) {
    chain.clear();
    std::size_t at = i;
    while (!taken[at]) {
      taken[at] = true;
      chain.push_back(at);
      const auto server = position.find(targets[at].json_server);
      if (server == position.end()) break;
      at = server->second;
    }
    order.insert(order.end(), chain.rbegin(), chain.rend());
  }
  return order;
}

}  // namespace zvradm
