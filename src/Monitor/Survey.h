// What the monitor says of routes, blocks, links and FIFOs. Never waits for a route: it takes the topology lock for the
// instant of a look, and otherwise reads what routes leave for any thread to read.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Monitor/Json.h"
#include "RingBuffer/RingBuffer.h"
#include "Route/RouteImpl.h"

namespace vorn::monitor {

/** What there is at one instant, kept alive by those who look. */
struct Registry {
  std::list<std::shared_ptr<RouteImpl>> routes;
  std::list<std::shared_ptr<RingBuffer>> fifos;
};

/** Thread: one. */
class Survey {
 public:
  using Clock = std::chrono::steady_clock;

  /** The answer to a line of words: one object on one line. */
  /** How often a line is to be answered, if it says so: "watch MS", 0 for no more. */
  static std::optional<std::chrono::milliseconds> PeriodOf(const std::string& line);

  std::string Answer(const std::string& line, const Registry& registry, Clock::time_point now);

  /** To be called once a second or so: from it is known since when a route stands. */
  void Look(const Registry& registry, Clock::time_point now);

 private:
  /** What a route was last seen doing, and since when it does that. */
  struct Seen {
    unsigned long long frames = 0;
    std::string block;
    Clock::time_point since;
    std::chrono::nanoseconds busy{0};  // processor time then
    bool isMet = false;
  };

  Object Graph(const Registry& registry) const;
  Object Stats(const Registry& registry, Clock::time_point now);
  Object Why(const Registry& registry, const std::string& name, Clock::time_point now);
  void WhyItRuns(Object& answer, const RouteImpl& route, const Registry& registry, Clock::time_point now);

  std::map<std::string, Seen> seen;  // by route
};

}  // namespace vorn::monitor
