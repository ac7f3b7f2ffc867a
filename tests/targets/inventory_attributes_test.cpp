#include "targets/inventory_attributes.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

using zvrdb::targets::inventory_attribute_count;
using zvrdb::targets::inventory_attributes;

std::uint32_t id_of_row(unsigned row) {
  return inventory_attributes[row - 1].id;
}

TEST(InventoryAttributes, EveryIdStandsOnceAndARowWithoutIdClosesTheTable) {
  std::set<std::uint32_t> ids;
  for (std::uint32_t i = 0; i < inventory_attribute_count; ++i) {
    ids.insert(inventory_attributes[i].id);
    EXPECT_NE(inventory_attributes[i].name, nullptr);
  }
  EXPECT_EQ(ids.size(), 151u);
  EXPECT_EQ(*ids.begin(), 1u);
  EXPECT_EQ(*ids.rbegin(), 151u);
  EXPECT_EQ(inventory_attributes[inventory_attribute_count].id, 0u);
}

TEST(InventoryAttributes, SomeRowsAreOutOfTheOrderOfTheIds) {
  EXPECT_STREQ(inventory_attributes[6].name, "PWS.planar/");
  EXPECT_EQ(id_of_row(7), 90u);
  EXPECT_EQ(id_of_row(8), 7u);
  EXPECT_EQ(id_of_row(10), 91u);
  EXPECT_EQ(id_of_row(19), 92u);
  EXPECT_EQ(id_of_row(34), 93u);
  EXPECT_STREQ(inventory_attributes[90].name, "SIMM.capacityMb/");
  EXPECT_EQ(id_of_row(91), 87u);
  EXPECT_EQ(id_of_row(92), 88u);
  EXPECT_EQ(id_of_row(93), 89u);
  EXPECT_EQ(id_of_row(94), 94u);
  EXPECT_EQ(id_of_row(96), 96u);
  EXPECT_STREQ(inventory_attributes[150].name, "OtherDevices");
  EXPECT_EQ(id_of_row(151), 151u);
}

TEST(InventoryAttributes, OneNameStandsTwice) {
  std::multiset<std::string> names;
  for (std::uint32_t i = 0; i < inventory_attribute_count; ++i) names.insert(inventory_attributes[i].name);
  EXPECT_EQ(names.count("DisketteDrives"), 2u);
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), 150u);
}

}  // namespace
