// What was measured, and the comparison with what is wanted.
#pragma once

#include <string>
#include <vector>

namespace bench {

struct Figure {
  std::string workload;
  std::string store;
  bool ours = false;
  bool floor = false;
  double median_us = 0, p99_us = 0;
  double per_second = 0;         // or bytes a record, where that is the question
  bool counted = false;          // calls and flushes are known
  double calls = 0, flushes = 0; // per operation
};

// Our figure to that of the best rival (or a certain one, or the floor).
struct Wanted {
  const char* workload;
  const char* ours;              // store
  const char* against;           // store, "best" of the rivals, or "floor"
  double ratio;
  const char* against_workload = nullptr;  // if it is another one
  bool smaller_is_better = false;
};

struct Report {
  std::vector<std::string> notes;      // machine and settings, a line each
  std::vector<Figure> figures;
  std::vector<std::string> workloads;  // in order of print
};

// The whole report as Markdown on standard output, and as JSON in a file.
void print_report(const Report& report, const std::vector<Wanted>& wanted);
void write_json(const Report& report, const std::vector<Wanted>& wanted, const std::string& path);

}  // namespace bench
