// The workloads on records, the same for every store.
#pragma once

#include <string>

#include "rivals/figures.h"
#include "rivals/rival.h"

namespace bench {

struct StoreOptions {
  std::string folder = "/tmp";
  std::string only;               // one workload, empty for all
  std::uint32_t records = 100000;
  double slice = 0.5;             // seconds of one measurement
  unsigned rounds = 3;            // measurements of each store, in turn with the others
  double mixed_seconds = 5;
};

namespace workload {
inline constexpr char insert_empty[] = "durable insert, empty";
inline constexpr char insert_full[] = "durable insert, 100,000 records";
inline constexpr char replace[] = "durable replace";
inline constexpr char erase[] = "durable delete";
inline constexpr char bulk[] = "bulk insert";
inline constexpr char get[] = "get";
inline constexpr char scan[] = "ordered scan";
inline constexpr char list[] = "list by repeating key";
inline constexpr char readers[] = "three readers";
inline constexpr char writer[] = "one writer";
inline constexpr char size[] = "bytes per record";
}  // namespace workload

void run_store_workloads(const StoreOptions& options, Rivals& rivals, Report* report);

}  // namespace bench
