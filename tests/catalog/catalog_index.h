// A catalog in plain memory: names in the order and with the differences that loading
// them from the file gives, and lists of them.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "catalog/catalog.h"
#include "catalog/catalog_list.h"
#include "memory/cf_name.h"
#include "memory/shared_tables_fixture.h"
#include "support/cf_names.h"

namespace zvrtest {

// By the text; among equal texts the shorter name first.
inline bool name_below(const CfName& a, const CfName& b) {
  const int texts = std::memcmp(a.data() + 11, b.data() + 11, 65);
  return texts != 0 ? texts < 0 : std::memcmp(a.data(), b.data(), 11) > 0;
}

struct Listing {
  int rc = 0;
  std::uint16_t count = 0;
  std::vector<zvrdb::CAT_CNTL_ENTRY> entries;
  zvrdb::catalog::list_cost cost;
};

class CatalogIndex {
 public:
  explicit CatalogIndex(std::vector<CfName> names, std::uint32_t spare = 5)
      : table_(1, static_cast<std::uint32_t>(names.size()) + spare), names_(std::move(names)) {
    std::sort(names_.begin(), names_.end(), name_below);
    const std::size_t count = names_.size();
    for (std::size_t i = 0; i < count; ++i) {
      // Slots are in another order than names.
      const std::size_t slot = count - 1 - i;
      zvrdb::DIST_CAT_ENTRY& entry = table_.tcb()->dist_cat[slot];
      entry.cf_number = static_cast<std::uint16_t>(slot);
      entry.cf_gen = static_cast<std::uint8_t>(slot * 7);
      std::memcpy(entry.head, names_[i].data(), names_[i].size());
      table_.tcb()->cat_cntl[i].dist_idx = static_cast<std::uint16_t>(slot);
      if (i + 1 < count)
        table_.tcb()->cat_cntl[i].name_diff =
            zvrdb::memory::encoded_name_diff(task(), names_[i].data(), names_[i + 1].data());
    }
    table_.cntl()->num_cat_actual = table_.cntl()->num_cat_inited = static_cast<std::uint32_t>(count);
  }

  void* task() const { return table_.task(); }
  zvrdb::DBR_TCB* tcb() const { return table_.tcb(); }
  zvrdb::DBR_CNTL* cntl() const { return table_.cntl(); }
  const std::vector<CfName>& names() const { return names_; }

  Listing list(const CfName& filter, std::uint32_t room = 100000) const {
    Listing listing;
    listing.entries.resize(room);
    listing.rc = zvrdb::catalog::list_matches(task(), filter.data(), listing.entries.data(), room * 4,
                                              &listing.count, &listing.cost);
    listing.entries.resize(std::min<std::size_t>(listing.count, room));
    return listing;
  }
  // The names listed, with dots.
  std::vector<std::string> listed(const std::string& filter) const {
    const Listing listing = list(cf(filter));
    EXPECT_EQ(listing.rc, DBE_OK);
    return shown(listing);
  }
  std::vector<std::string> shown(const Listing& listing) const {
    std::vector<std::string> texts;
    for (const zvrdb::CAT_CNTL_ENTRY& entry : listing.entries)
      texts.push_back(dotted(name_in(entry.dist_idx)));
    return texts;
  }
  // Positions in names(), in the order listed.
  std::vector<std::size_t> positions(const Listing& listing) const {
    std::vector<std::size_t> found;
    for (const zvrdb::CAT_CNTL_ENTRY& entry : listing.entries)
      found.push_back(names_.size() - 1 - entry.dist_idx);
    return found;
  }
  const CfName& name_in(std::uint16_t slot) const { return names_[names_.size() - 1 - slot]; }

 private:
  table_task table_;
  std::vector<CfName> names_;
};

inline std::vector<CfName> names_of(const std::vector<std::string>& dotted_names) {
  std::vector<CfName> names;
  for (const std::string& name : dotted_names) names.push_back(cf(name));
  return names;
}

}  // namespace zvrtest
