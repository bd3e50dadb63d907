// What the monitor says of routes, blocks, links and FIFOs. Never waits for a route: it takes the topology lock for the
// instant of a look, and otherwise reads what routes leave for any thread to read.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "Monitor/Json.h"
#include "Monitor/Monitor.h"
#include "Monitor/Reason.h"

namespace vorn::monitor {

/** Thread: one. */
class Survey {
 public:
  using Clock = std::chrono::steady_clock;
  using Words = std::vector<std::string>;

  /** One look at what there is. */
  struct View {
    const Registry& registry;
    Clock::time_point now;
  };

  /** The reply to a request that looks: one object. */
  Object Graph(const View& view, bool hasConsole) const;
  /** @param names of a route and a block of it; of all, where they are left out. */
  Object Params(const View& view, const Words& names) const;
  Object Stats(const View& view);
  Object Why(const View& view, const std::string& name);
  Object Timing(const View& view) const;

  /**
   * Whether routes that run have yet to work out their readings.
   * @param ask asks them to, first.
   */
  static bool AwaitsReadings(const View& view, bool ask);

  void SwitchTiming(const View& view, bool on);

  /** To be called once a second: from it are known rates, xruns, and since when a route stands. */
  void Tick(const View& view);

 private:
  /** What is known of a route from earlier looks. */
  struct Known {
    Standing standing;
    Clock::time_point marked;  // the last tick, and what it saw:
    unsigned long long frames = 0;
    std::chrono::nanoseconds processor{0};
    double framesPerSecond = 0;
    double processorShare = 0;
    std::map<std::string, long> xruns;  // by block
    bool isMet = false;
  };

  Known& Look(const RouteImpl& route, Clock::time_point now);
  void Mark(const RouteImpl& route, Known& known, Clock::time_point now);
  void CountXruns(const RouteImpl& route, Known& known);
  Reason WhyOf(const RouteImpl& route, const View& view);
  Object DescribeStats(RouteImpl& route, const View& view);

  std::map<std::string, Known> routes;
  bool isTimed = false;
};

}  // namespace vorn::monitor
