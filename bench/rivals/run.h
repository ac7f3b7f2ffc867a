// Work in child processes whose samples come back.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace bench {

// Filled by a child process, in memory that it shares with its parent.
struct Outcome {
  static constexpr std::size_t most_samples = 400000;
  std::uint64_t operations;
  double seconds;
  std::uint64_t cursor;        // whatever the next run has to know
  std::size_t sample_count;
  float samples[most_samples]; // microseconds

  void add_sample(double us) {
    if (sample_count < most_samples) samples[sample_count++] = static_cast<float>(us);
  }
};

class SharedOutcome {
 public:
  SharedOutcome();
  ~SharedOutcome();
  SharedOutcome(const SharedOutcome&) = delete;
  SharedOutcome& operator=(const SharedOutcome&) = delete;
  Outcome* operator->() const { return outcome_; }
  Outcome& operator*() const { return *outcome_; }
  double percentile(double share) const;

 private:
  Outcome* outcome_;
};

// Does one operation after the other for so long or so often, timing each.
void time_each(Outcome* out, double most_seconds, std::uint64_t most, const std::function<void(std::uint64_t)>& operation);
// The same without a clock in between: for operations below a microsecond.
void time_all(Outcome* out, double most_seconds, std::uint64_t most, const std::function<void(std::uint64_t)>& operation);

}  // namespace bench
