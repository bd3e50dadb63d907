// What the programs that print rows share: clocks, medians, and how often a measurement is repeated.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

namespace bench {

/** In nanoseconds. */
inline double ReadClock(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

/** malloc and its like, called so far in this process. */
unsigned long Allocations();

/** One moment: the clock on the wall, that of the whole process, and the count of allocations. */
struct Mark {
  double wall = 0;
  double cpu = 0;
  double allocations = 0;

  static Mark Now() {
    return {ReadClock(CLOCK_MONOTONIC), ReadClock(CLOCK_PROCESS_CPUTIME_ID), static_cast<double>(Allocations())};
  }
};

inline double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/** What several runs of one work took, for one frame each. */
class Runs {
 public:
  void Add(const Mark& from, const Mark& to, double frames) {
    Add((to.wall - from.wall) / frames, (to.cpu - from.cpu) / frames, (to.allocations - from.allocations) / frames);
  }
  void Add(double newWall, double newCpu, double newAllocations = 0) {
    wall.push_back(newWall), cpu.push_back(newCpu), allocations.push_back(newAllocations);
  }

  /** "median <TAB> least <TAB> most" */
  void PrintWall() const {
    std::printf("%.2f\t%.2f\t%.2f", Median(wall), *std::min_element(wall.begin(), wall.end()),
                *std::max_element(wall.begin(), wall.end()));
  }
  /** The same, and " <TAB> CPU". */
  void Print() const {
    PrintWall();
    std::printf("\t%.2f", Median(cpu));
  }
  double MedianOfAllocations() const { return Median(allocations); }

 private:
  std::vector<double> wall;
  std::vector<double> cpu;
  std::vector<double> allocations;
};

/** RUNS of the environment, or 7. Another run before them warms up. */
inline int RunCount() {
  const char* runs = std::getenv("RUNS");
  return runs != nullptr ? std::max(1, std::atoi(runs)) : 7;
}

/** Long measurements are this many times as long as short ones: SHORT in the environment asks for those. */
inline long Length(long frames) { return std::getenv("SHORT") != nullptr ? std::max(1L, frames / 20) : frames; }

/** Calls `measure` (Mark& from, Mark& to), which carries `frames` frames, once to warm up and then for each run. */
template <class Measure>
Runs Repeat(double frames, Measure measure) {
  Runs runs;
  for (int run = 0; run <= RunCount(); ++run) {
    Mark from, to;
    measure(from, to);
    if (run > 0) runs.Add(from, to, frames);
  }
  return runs;
}

[[noreturn]] inline void Die(const char* what) {
  std::fprintf(stderr, "bench: %s\n", what);
  std::exit(1);
}

}  // namespace bench
