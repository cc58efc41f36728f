#pragma once

#include <benchmark/benchmark.h>

#include <sys/types.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <vector>

namespace orvane::benchmarks {

inline double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

/// Measures the engine beside its floor in the same run, round by round, and reports the medians
/// as counters: `engine_ms`, `floor_ms` and their ratio, the figure that counts.
class Ratio {
 public:
  /// What a round costs: seconds on the wall, or seconds on all cores of this process, or of it and
  /// its running children.
  enum class Clock { wall, processCpu, cpuWithChildren };

  explicit Ratio(benchmark::State& state, Clock clock = Clock::wall)
      : state_(state), clock_(clock) {}

  template <class F>
  void engine(F&& work) {
    engine_.push_back(timed(work));
    state_.SetIterationTime(engine_.back());
  }

  template <class F>
  void floor(F&& work) {
    floor_.push_back(timed(work));
  }

  void report() {
    const double engine = median(engine_);
    const double floor = median(floor_);
    state_.counters["engine_ms"] = engine * 1e3;
    state_.counters["floor_ms"] = floor * 1e3;
    state_.counters["ratio"] = engine / floor;
  }

 private:
  [[nodiscard]] double now() const {
    if (clock_ == Clock::wall) return read(CLOCK_MONOTONIC);
    const double ofChildrenToo = clock_ == Clock::cpuWithChildren ? ofChildren() : 0;
    return read(CLOCK_PROCESS_CPUTIME_ID) + ofChildrenToo;
  }

  static double read(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  }

  static double ofChildren() {
    double sum = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
      std::ifstream children(thread.path() / "children");
      for (pid_t child = 0; children >> child;) {
        clockid_t clock{};
        if (clock_getcpuclockid(child, &clock) == 0) sum += read(clock);
      }
    }
    return sum;
  }

  template <class F>
  double timed(F& work) const {
    const double start = now();
    work();
    return now() - start;
  }

  benchmark::State& state_;
  Clock clock_;
  std::vector<double> engine_;
  std::vector<double> floor_;
};

}  // namespace orvane::benchmarks
