// A mutex for sections of some ten nanoseconds: who finds it taken looks again for a while before he sleeps.
#pragma once

#include <atomic>
#include <cstdint>

#include "RingBuffer/Futex.h"

namespace vorn {

class AdaptiveMutex {
 public:
  void lock() {
    std::uint32_t expected = FREE;
    if (!state.compare_exchange_strong(expected, TAKEN, std::memory_order_acquire)) LockSlowly();
  }
  void unlock() {
    if (state.exchange(FREE, std::memory_order_release) == SLEPT_ON) Futex::Wake(state, 1);
  }

 private:
  enum : std::uint32_t { FREE, TAKEN, SLEPT_ON };

  void LockSlowly() {
    for (int look = 0; look < MOST_LOOKS; ++look) {
      std::uint32_t expected = FREE;
      if (state.load(std::memory_order_relaxed) == FREE &&
          state.compare_exchange_weak(expected, TAKEN, std::memory_order_acquire)) {
        return;
      }
      Futex::Pause();
    }
    while (state.exchange(SLEPT_ON, std::memory_order_acquire) != FREE) Futex::Wait(state, SLEPT_ON);
  }

  static constexpr int MOST_LOOKS = 500;

  std::atomic<std::uint32_t> state{FREE};
};

}  // namespace vorn
