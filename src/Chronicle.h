// What happened in this process, for those who ask later: the last events, and a word to who listens for the next one.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

/** Any thread. Kept in memory: adding one allocates, so nothing in a frame cycle does. */
class Chronicle {
 public:
  enum class Kind { MADE, STARTED, STOPPED, BROKEN, DIED, DELETED, EDITED, XRUN, REFUSED };

  struct Event {
    unsigned long number = 0;  ///< From 1 on, in the order of the events.
    std::chrono::system_clock::time_point time = {};
    Kind kind = Kind::MADE;
    std::string route;  ///< Empty where it is of none, as the block.
    std::string block;
    std::string text;
  };

  static constexpr std::size_t KEPT = 200;

  /** An event that repeats the last one takes its place. Without memory for it, it is lost. */
  static void Tell(Kind kind, std::string_view route, std::string_view block, std::string_view text) noexcept;

  /** Those with a higher number, the oldest first. */
  static std::vector<Event> After(unsigned long number);

  /** @param listener called at each event under a lock, so it does next to nothing; null: nobody listens any more. */
  static void Listen(std::function<void()> listener);
};

}  // namespace vorn
