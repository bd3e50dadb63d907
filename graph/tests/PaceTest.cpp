#include <gtest/gtest.h>

#include "Pace.h"

namespace {

using namespace std::chrono_literals;
using vorn::graph::Pace;

// Red if a graph that moves slowly counts as one that stands still, or one that stands still as slow.
TEST(Pace, StandsStillWhenItPausesTwiceAsLongAsEver) {
  for (const auto& [pause, patience] :
       {std::pair{10ms, Pace::LEAST}, std::pair{300ms, 600ms}, std::pair{9000ms, Pace::MOST}}) {
    Pace pace;
    Pace::Clock::time_point now = Pace::Clock::now();
    for (int moves = 0; moves < 3; ++moves, now += pause) pace.Look(static_cast<std::uint64_t>(moves), now);
    now -= pause;
    pace.Look(2, now + patience - 1ms);
    EXPECT_FALSE(pace.StandsStill(now + patience - 1ms));
    EXPECT_TRUE(pace.StandsStill(now + patience));
    pace.Look(3, now + patience);
    EXPECT_FALSE(pace.StandsStill(now + patience));
  }
}

}  // namespace
