// A wake-up that costs its caller next to nothing while nobody sleeps.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>

#include "Block/SleepTime.h"
#include "RingBuffer/AdaptiveMutex.h"

namespace vorn {

/**
 * A condition variable for threads whose waits are short or long by phases. Who waits looks for the signal for a while
 * before he sleeps, as long as that succeeds: two threads that hand frames to each other then need no system call, and
 * one that waits for a device, or shares a core with the other, hardly looks at all.
 *
 * It looks for the signal alone, never at what the signal is about: who was not signalled does not go on.
 */
class alignas(64) WakeUp {
 public:
  using Lock = std::unique_lock<AdaptiveMutex>;

  // All expect the mutex.

  /** Gives the mutex up meanwhile. May come back for nothing. */
  void Wait(Lock& lock) {
    const SleepTime::Counted counted;
    const std::uint32_t seen = signals.load(std::memory_order_relaxed);
    Look(lock, seen);
    if (HasChanged(seen)) return;
    ++sleepers;
    lock.unlock();
    while (!HasChanged(seen)) Futex::Wait(signals, seen);
    lock.lock();
  }
  // These give the mutex up while they wake a sleeper: on a shared core he runs at once, and wants it.
  void NotifyOne(Lock& lock) { Notify(lock, 1); }
  void NotifyAll(Lock& lock) { Notify(lock, Futex::ALL); }

 private:
  // Longer than a thread that slept takes to come back, on a virtual machine too: else two of them would send each
  // other to sleep for ever.
  static constexpr std::chrono::microseconds LONGEST_LOOK{100};
  static constexpr int FEWEST_SLEEPS = 8;
  static constexpr int MOST_SLEEPS = 16384;

  bool HasChanged(std::uint32_t seen) const { return signals.load(std::memory_order_acquire) != seen; }

  void Notify(Lock& lock, int most) {
    signals.store(signals.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    if (sleepers == 0) return;
    sleepers -= std::min(sleepers, most);  // not the sleepers themselves: they take their time to come back
    lock.unlock();
    Futex::Wake(signals, most);
    lock.lock();
  }

  /** A look in vain is followed by ever more sleeps before the next one; so is one that took longer, on a shared core. */
  void Look(Lock& lock, std::uint32_t seen) {
    if (sleepsToCome > 0) return static_cast<void>(--sleepsToCome);
    lock.unlock();
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + LONGEST_LOOK;
    bool isInTime = true;
    for (bool found = false; !found && isInTime; isInTime = Clock::now() < end) {
      for (int pause = 0; pause < 64 && !found; ++pause) {
        Futex::Pause();
        found = HasChanged(seen);
      }
    }
    lock.lock();
    sleepsAfterLook = std::clamp(isInTime ? sleepsAfterLook / 2 : 2 * sleepsAfterLook, FEWEST_SLEEPS, MOST_SLEEPS);
    sleepsToCome = isInTime ? 0 : sleepsAfterLook;
  }

  std::atomic<std::uint32_t> signals{0};
  int sleepers = 0;  // that nobody has woken
  int sleepsAfterLook = FEWEST_SLEEPS;
  int sleepsToCome = 0;
};

}  // namespace vorn
