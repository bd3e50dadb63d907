// Why a route does what it does: the question of an operator at three in the morning.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "Monitor/Json.h"
#include "Monitor/Monitor.h"

namespace vorn::monitor {

/** What a route was last seen doing, and since when it does that. */
struct Standing {
  using Clock = std::chrono::steady_clock;

  unsigned long long frames = 0;
  std::string block;  // whose code its thread runs; empty for none
  Clock::time_point since = {};
  std::chrono::nanoseconds processor{0};  // what it had used by then

  /** To be called at every look. */
  void Look(const RouteImpl& route, Clock::time_point now);
  /** Whether it stays in the code of a block for longer than a frame takes. */
  bool HasStood(Clock::time_point now) const;
};

struct Reason {
  const char* why;
  std::string text;  ///< A sentence.
  Object members;    ///< What else there is to say: see docs/monitor.md.
};

/** What is known to find the reason. */
struct Evidence {
  const Registry& registry;
  Standing::Clock::time_point now;
  std::function<const Standing&(const RouteImpl&)> standing;
};

Reason ReasonOf(const RouteImpl& route, const Evidence& evidence);

const char* StatusName(const RouteImpl& route);
Object DescribeFIFO(const RingBuffer& fifo);

}  // namespace vorn::monitor
