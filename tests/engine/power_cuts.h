// What a power cut may leave of a run, point by point.
#pragma once

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "engine/memory_disk.h"

namespace zvrdb::test {

// How much of it a run of the suite tries; everything under ZVR_TORTURE.
struct power_cut_sample {
  std::size_t points;     // behind about so many of the events
  std::size_t prefixes;   // about so many of the prefixes, of the single losses and of the tears at each
  int subsets;            // random ones at each
  int seeds = 200;        // the same where everything is tried and the writes are many
};

// Fates of writes that a power cut decides.  Where they are few every choice of the kept and the
// lost is tried, and besides some with tears; where they are many, and with `all` not set, so many
// by the coin.  Ends with the first false that `look` answers, and answers it.
bool for_each_fate(const std::vector<std::size_t>& open, bool all, int seeds, std::mt19937* coin,
                   const std::function<bool(const write_fates& fates)>& look);

// Behind events of the run on `start`: of the writes that no flush followed all are lost, or
// all but a prefix, or a single one, or a single one is torn, or each fares by the coin.
// `verify` looks at what is left then; the cuts end with its first false, and false is answered.
bool for_each_power_cut(const disk_image& start, const std::vector<disk_event>& events, power_cut_sample sample,
                        std::mt19937* coin,
                        const std::function<bool(const disk_image& left, std::size_t event)>& verify);

}  // namespace zvrdb::test
