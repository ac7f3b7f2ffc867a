#include "server_order.h"

#include <gtest/gtest.h>

namespace {

using namespace zvradm;

std::string order_of(const std::vector<std::pair<std::string, std::string>>& links) {
  std::vector<ordered_target> targets;
  for (const auto& [name, server] : links) targets.push_back({name, name, server, ""});
  std::string order;
  for (const std::size_t at : servers_first(targets)) order += targets[at].name;
  return order;
}

TEST(ServerOrder, TargetsKeepTheirPlacesWithoutServers) { EXPECT_EQ(order_of({{"A", ""}, {"B", ""}, {"C", ""}}), "ABC"); }

TEST(ServerOrder, AServerAndItsServerComeBeforeTheClient) {
  EXPECT_EQ(order_of({{"A", "C"}, {"B", ""}, {"C", "D"}, {"D", ""}}), "DCAB");
}

TEST(ServerOrder, ATargetThatIsItsOwnServerStandsOnce) { EXPECT_EQ(order_of({{"A", "A"}, {"B", "A"}}), "AB"); }

TEST(ServerOrder, ARingOfServersHoldsEachOnce) { EXPECT_EQ(order_of({{"A", "B"}, {"B", "C"}, {"C", "A"}}), "CBA"); }

TEST(ServerOrder, AServerThatIsNotThereChangesNothing) { EXPECT_EQ(order_of({{"A", "Z"}, {"B", ""}}), "AB"); }

}  // namespace
