#include "engine/power_cuts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

namespace zvrdb::test {
namespace {

constexpr std::size_t few = 4;        // writes, of which all choices are tried
constexpr int tears_of_each = 12;     // beside these, for each of the few

}  // namespace

bool for_each_fate(const std::vector<std::size_t>& open, bool all, int seeds, std::mt19937* coin,
                   const std::function<bool(const write_fates& fates)>& look) {
  write_fates fates;
  if (all && open.size() <= few) {
    for (unsigned choice = 0; choice < 1U << open.size(); choice++) {
      for (std::size_t i = 0; i < open.size(); i++)
        fates[open[i]] = (choice >> i & 1) != 0 ? write_fate::kept : write_fate::lost;
      if (!look(fates)) return false;
    }
    seeds = std::min(seeds, tears_of_each * static_cast<int>(open.size()));
  }
  for (int s = 0; s < seeds; s++) {
    for (const std::size_t i : open) fates[i] = static_cast<write_fate>((*coin)() % 3);
    if (!look(fates)) return false;
  }
  return true;
}

bool for_each_power_cut(const disk_image& start, const std::vector<disk_event>& events, power_cut_sample sample,
                        std::mt19937* coin,
                        const std::function<bool(const disk_image& left, std::size_t event)>& verify) {
  const bool all = std::getenv("ZVR_TORTURE") != nullptr;
  if (all) sample = {SIZE_MAX, SIZE_MAX, sample.seeds, sample.seeds};
  const std::size_t step = all || events.size() < sample.points ? 1 : events.size() / sample.points;
  for (std::size_t n = 0; n <= events.size(); n += all ? 1 : 1 + (*coin)() % step) {
    const std::vector<std::size_t> open = undecided_writes(events, n);
    const auto cut = [&](const write_fates& chosen, const std::string& how) {
      SCOPED_TRACE("power cut behind event " + std::to_string(n) + " of " + std::to_string(events.size()) + ", " + how);
      return verify(after_power_cut(start, events, n, chosen, coin), n);
    };
    write_fates none;
    for (const std::size_t i : open) none[i] = write_fate::lost;
    if (!cut(none, "all lost")) return false;
    write_fates prefix = none;
    for (const std::size_t i : open) {
      prefix[i] = write_fate::kept;
      if (!all && (*coin)() % open.size() >= sample.prefixes) continue;
      if (!cut(prefix, "a prefix to " + std::to_string(i)) ||
          !cut({{i, write_fate::lost}}, "without " + std::to_string(i)) ||
          !cut({{i, write_fate::torn}}, "torn " + std::to_string(i)))
        return false;
    }
    int subset = 0;
    if (!for_each_fate(open, all, sample.subsets, coin,
                       [&](const write_fates& chosen) { return cut(chosen, "subset " + std::to_string(subset++)); }))
      return false;
  }
  return true;
}

}  // namespace zvrdb::test
