#include "rivals/run.h"

#include <sys/mman.h>

#include <algorithm>

#include "bench_installation.h"
#include "measurement.h"

namespace bench {

SharedOutcome::SharedOutcome() {
  void* memory = mmap(nullptr, sizeof(Outcome), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) give_up("memory for samples", 0);
  outcome_ = static_cast<Outcome*>(memory);
}

SharedOutcome::~SharedOutcome() {
  munmap(outcome_, sizeof(Outcome));
}

double SharedOutcome::percentile(double share) const {
  const std::size_t n = outcome_->sample_count;
  if (n == 0) return 0;
  std::vector<float> sorted(outcome_->samples, outcome_->samples + n);
  std::sort(sorted.begin(), sorted.end());
  return static_cast<double>(sorted[std::min(n - 1, static_cast<std::size_t>(share * static_cast<double>(n)))]);
}

void time_each(Outcome* out, double most_seconds, std::uint64_t most,
               const std::function<void(std::uint64_t)>& operation) {
  const Clock::time_point begin = Clock::now();
  Clock::time_point before = begin;
  std::uint64_t i = 0;
  while (i < most && std::chrono::duration<double>(before - begin).count() < most_seconds) {
    operation(i++);
    const Clock::time_point now = Clock::now();
    out->add_sample(std::chrono::duration<double, std::micro>(now - before).count());
    before = now;
  }
  out->operations += i;
  out->seconds += std::chrono::duration<double>(before - begin).count();
}

void time_all(Outcome* out, double most_seconds, std::uint64_t most,
              const std::function<void(std::uint64_t)>& operation) {
  // At the clock after 1, 2, 4 ... operations, as long as that is often.
  constexpr double often = 0.001;
  std::uint64_t between_looks = 1;
  const Clock::time_point begin = Clock::now();
  double passed = 0;
  std::uint64_t i = 0;
  while (i < most && passed < most_seconds) {
    for (const std::uint64_t end = std::min(most, i + between_looks); i < end; ++i) operation(i);
    const double before = passed;
    passed = std::chrono::duration<double>(Clock::now() - begin).count();
    if (passed - before < often) between_looks *= 2;
  }
  out->operations += i;
  out->seconds += passed;
}

}  // namespace bench
