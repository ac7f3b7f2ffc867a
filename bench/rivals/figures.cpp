#include "rivals/figures.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "bench_installation.h"

namespace bench {
namespace {

struct Comparison {
  const Wanted* wanted;
  const Figure* ours = nullptr;
  const Figure* other = nullptr;
  double ratio = 0;
  double of_medians = 0;   // on a machine with other work the steadier one; 0 where there is none
  bool met = false;
};

bool is_sought(const Figure& f, const Wanted& w) {
  if (f.workload != (w.against_workload ? w.against_workload : w.workload)) return false;
  if (std::strcmp(w.against, "floor") == 0) return f.floor;
  if (std::strcmp(w.against, "best") == 0) return !f.ours && !f.floor;
  return f.store == w.against;
}

std::vector<Comparison> compare(const Report& report, const std::vector<Wanted>& wanted) {
  std::vector<Comparison> all;
  for (const Wanted& w : wanted) {
    Comparison c{&w};
    for (const Figure& f : report.figures) {
      if (f.workload == w.workload && f.store == w.ours) c.ours = &f;
      if (!is_sought(f, w)) continue;
      if (!c.other || (w.smaller_is_better ? f.per_second < c.other->per_second : f.per_second > c.other->per_second))
        c.other = &f;
    }
    if (!c.ours || !c.other) continue;
    c.ratio = w.smaller_is_better ? c.other->per_second / c.ours->per_second : c.ours->per_second / c.other->per_second;
    if (c.ours->median_us > 0 && c.other->median_us > 0 && !w.against_workload)
      c.of_medians = c.other->median_us / c.ours->median_us;
    c.met = c.ratio >= w.ratio;
    all.push_back(c);
  }
  return all;
}

void print_comparison(const Comparison& c) {
  std::printf("| %s | %s | %.0f | %s | %.0f | %.2f |", c.wanted->workload, c.ours->store.c_str(), c.ours->per_second,
              c.other->store.c_str(), c.other->per_second, c.ratio);
  if (c.of_medians > 0) std::printf(" %.2f |", c.of_medians);
  else std::printf(" |");
  std::printf(" %.2f | %s |\n", c.wanted->ratio, c.met ? "met" : "not met");
}

}  // namespace

void print_report(const Report& report, const std::vector<Wanted>& wanted) {
  std::printf("# Beside other stores\n\n");
  for (const std::string& note : report.notes) std::printf("- %s\n", note.c_str());
  std::printf("\n## Ratios\n\nFigures are operations per second, and bytes where bytes are compared.\n\n"
              "| workload | ours | figure | against | figure | ratio | of medians | wanted | |\n"
              "|---|---|---:|---|---:|---:|---:|---:|---|\n");
  for (const Comparison& c : compare(report, wanted)) print_comparison(c);
  std::printf("\n## Figures\n");
  for (const std::string& workload : report.workloads) {
    std::printf("\n### %s\n\n| store | figure | median us | p99 us | system calls | flushes |\n"
                "|---|---:|---:|---:|---:|---:|\n",
                workload.c_str());
    for (const Figure& f : report.figures) {
      if (f.workload != workload) continue;
      std::printf("| %s | %.0f |", f.store.c_str(), f.per_second);
      if (f.median_us > 0) std::printf(" %.2f | %.2f |", f.median_us, f.p99_us);
      else std::printf(" | |");
      if (f.counted) std::printf(" %.2f | %.2f |\n", f.calls, f.flushes);
      else std::printf(" | |\n");
    }
  }
}

void write_json(const Report& report, const std::vector<Wanted>& wanted, const std::string& path) {
  nlohmann::json out;
  out["notes"] = report.notes;
  out["figures"] = nlohmann::json::array();
  for (const Figure& f : report.figures) {
    nlohmann::json row = {{"workload", f.workload}, {"store", f.store}, {"ours", f.ours}, {"per_second", f.per_second}};
    if (f.median_us > 0) row.update({{"median_us", f.median_us}, {"p99_us", f.p99_us}});
    if (f.counted) row.update({{"system_calls", f.calls}, {"flushes", f.flushes}});
    out["figures"].push_back(row);
  }
  out["ratios"] = nlohmann::json::array();
  for (const Comparison& c : compare(report, wanted)) {
    nlohmann::json row = {{"workload", c.wanted->workload}, {"ours", c.ours->store}, {"against", c.other->store},
                          {"ratio", c.ratio},               {"wanted", c.wanted->ratio}, {"met", c.met}};
    if (c.of_medians > 0) row["ratio_of_medians"] = c.of_medians;
    out["ratios"].push_back(row);
  }
  std::ofstream file(path);
  file << out.dump(2) << "\n";
  if (!file) give_up("writing the figures", 0);
}

}  // namespace bench
