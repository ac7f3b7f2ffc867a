#include "engine/power_cuts.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

namespace zvrdb::test {
namespace {

constexpr power_cut_sample everything = {SIZE_MAX, SIZE_MAX, 200};

using fates = std::map<std::size_t, write_fate>;

}  // namespace

bool for_each_power_cut(const disk_image& start, const std::vector<disk_event>& events, power_cut_sample sample,
                        std::mt19937* coin,
                        const std::function<bool(const disk_image& left, std::size_t event)>& verify) {
  const bool all = std::getenv("ZVR_TORTURE") != nullptr;
  if (all) sample = everything;
  const std::size_t step = all || events.size() < sample.points ? 1 : events.size() / sample.points;
  for (std::size_t n = 0; n <= events.size(); n += all ? 1 : 1 + (*coin)() % step) {
    const std::vector<std::size_t> open = undecided_writes(events, n);
    const auto cut = [&](const fates& chosen, const std::string& how) {
      SCOPED_TRACE("power cut behind event " + std::to_string(n) + " of " + std::to_string(events.size()) + ", " + how);
      return verify(after_power_cut(start, events, n, chosen, coin), n);
    };
    fates none;
    for (const std::size_t i : open) none[i] = write_fate::lost;
    if (!cut(none, "all lost")) return false;
    fates prefix = none;
    for (const std::size_t i : open) {
      prefix[i] = write_fate::kept;
      if (!all && (*coin)() % open.size() >= sample.prefixes) continue;
      if (!cut(prefix, "a prefix to " + std::to_string(i)) ||
          !cut({{i, write_fate::lost}}, "without " + std::to_string(i)) ||
          !cut({{i, write_fate::torn}}, "torn " + std::to_string(i)))
        return false;
    }
    for (int s = 0; s < sample.subsets; s++) {
      fates chosen;
      for (const std::size_t i : open) chosen[i] = static_cast<write_fate>((*coin)() % 3);
      if (!cut(chosen, "subset " + std::to_string(s))) return false;
    }
  }
  return true;
}

}  // namespace zvrdb::test
