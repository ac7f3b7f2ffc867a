// Names, numbers and network names of the targets, for this run only. The table has the
// form of the shared one and stands in its place, so that records are converted by names as
// ever; it lies in memory of this task, and nobody else can come upon it.
#pragma once

#include <cstdint>

#include "migration/conversion.h"

namespace zvrdb::migration {

// A table of `numbers` targets, all without a name. The indexes are empty: num_trgs_actual
// is 0. 0; 8455 (36355 logged).
std::int16_t make_table(conversion& run, std::uint32_t numbers);
// Adds a number to the end of both indexes. Its slot must have its name.
void add_to_indexes(const conversion& run, std::uint32_t number);
// Gives the table back, and leaves the counts for the next building of the shared one.
void free_table(conversion& run);

// Makes sure that the names are known: when no stage of this run made the table, it is
// loaded from "trgcfg". 0 or 8455.
std::int16_t need_names(conversion& run);

}  // namespace zvrdb::migration
