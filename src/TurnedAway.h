// Strangers at the console's door. The log tells of the first at once; of all others a count, once a minute at most:
// who may not command must not be able to fill the log either.
#pragma once

#include <chrono>
#include <optional>

namespace vorn {

class TurnedAway {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /** One more. @return how many there were since the log told of one, this one included; nothing: not yet its time. */
  std::optional<unsigned long> Count(Time now) {
    ++untold;
    if (told && now < *told + std::chrono::minutes(1)) return std::nullopt;
    told = now;
    const unsigned long count = untold;
    untold = 0;
    return count;
  }

 private:
  std::optional<Time> told;
  unsigned long untold = 0;
};

}  // namespace vorn
