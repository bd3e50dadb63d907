// A mutex for sections of some ten nanoseconds: who finds it taken looks again for a while before he sleeps.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "RingBuffer/Futex.h"

namespace vorn {

class AdaptiveMutex {
 public:
  void lock() {
    if (!TryToTake()) LockSlowly();
  }
  // Half of what a mutex costs is the exchange that commonly frees it. A plain store may become visible only after the
  // look at the sleepers, though, and leave one behind: he does not sleep for long.
  void unlock() {
    state.store(FREE, std::memory_order_release);
    if (sleepers.load(std::memory_order_relaxed) != 0) Futex::Wake(state, 1);
  }

 private:
  enum : std::uint32_t { FREE, TAKEN };

  bool TryToTake() {
    std::uint32_t expected = FREE;
    return state.compare_exchange_strong(expected, TAKEN, std::memory_order_acquire);
  }

  bool Look() {
    for (int look = 0; look < MOST_LOOKS; ++look) {
      if (state.load(std::memory_order_relaxed) == FREE && TryToTake()) return true;
      Futex::Pause();
    }
    return false;
  }

  void LockSlowly() {
    if (Look()) return;
    sleepers.fetch_add(1);
    while (!Look()) Futex::Wait(state, TAKEN, LONGEST_SLEEP);  // looks first: by then the store is visible as a rule
    sleepers.fetch_sub(1);
  }

  static constexpr int MOST_LOOKS = 500;
  static constexpr std::chrono::milliseconds LONGEST_SLEEP{1};

  std::atomic<std::uint32_t> state{FREE};
  std::atomic<std::uint32_t> sleepers{0};
};

}  // namespace vorn
