/** The live view: samples of the status report, and what the difference of two of them tells. */
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Shell.h"
#include "StatusParser.h"

namespace vrdb {

/** The status at one moment, or why there is none. */
struct Sample {
  std::chrono::steady_clock::time_point when;
  std::string time;  ///< the same moment in UTC, to the millisecond
  Result result;
  Peer process;
  Report report;
};

Sample TakeSample(Shell& shell);

/** What changed between the last two samples of one process. */
class Rates {
 public:
  void Add(const Sample& sample);

  /** None for a route that was not there before, or was made anew, or without a sample before. */
  std::optional<double> FramesPerSecond(const std::string& route) const;
  bool HasNewErrors(const std::string& route) const;

 private:
  struct Counters {
    std::uint64_t frames;
    std::uint64_t errors;
  };
  struct Moment {
    std::chrono::steady_clock::time_point when;
    pid_t pid = 0;
    std::map<std::string, Counters> routes;
  };
  struct Pair {
    Counters before;
    Counters now;
  };
  std::optional<Pair> Compare(const std::string& route) const;

  Moment before, now;
};

/** What `top` was asked for. */
struct TopOptions {
  bool batch = false;
  bool json = false;
  long count = 0;  ///< samples to take; 0: for ever
  double interval = 1;
};

inline std::chrono::steady_clock::duration ToDuration(double seconds) {
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
}

/** The view on a terminal, until its user ends it. In TopScreen.cpp. */
Result WatchOnScreen(Shell& shell, TopOptions options);

/** The lines that show a sample, none longer than `columns`, at most `rows` of them. In TopScreen.cpp. */
std::vector<std::string> DrawSample(const Sample& sample, const Rates& rates, const std::string& state, int columns,
                                    int rows, const Style& style);

}  // namespace vrdb
