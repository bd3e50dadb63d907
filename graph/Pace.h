// How a graph moves, and whether it has come to a standstill.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace vorn::graph {

/**
 * A graph that is to end stands still when nothing moved for twice as long as it ever paused before: a player that
 * takes a second of sound at a time is slow, and no reader that has gone to sleep.
 */
class Pace {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::milliseconds LEAST{80};
  static constexpr std::chrono::milliseconds MOST{2000};

  /** @param newMoves a count that grows with every move. */
  void Look(std::uint64_t newMoves, Clock::time_point now) {
    if (newMoves == moves && lastMove != Clock::time_point()) return;
    if (lastMove != Clock::time_point()) longestPause = std::max(longestPause, now - lastMove);
    moves = newMoves;
    lastMove = now;
  }

  /** As of the last look. */
  bool StandsStill(Clock::time_point now) const {
    return now - lastMove >= std::clamp<Clock::duration>(2 * longestPause, LEAST, MOST);
  }

 private:
  std::uint64_t moves = 0;
  Clock::time_point lastMove;
  Clock::duration longestPause{};
};

}  // namespace vorn::graph
