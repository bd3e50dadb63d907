// Sleeping on a word of memory until another thread of the process says that it changed.
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <ctime>

namespace vorn {

struct Futex {
  using Word = std::atomic<std::uint32_t>;
  static_assert(sizeof(Word) == sizeof(std::uint32_t) && Word::is_always_lock_free);

  static constexpr int ALL = INT_MAX;

  /** Sleeps where the word holds `seen`. May come back for nothing. */
  static void Wait(Word& word, std::uint32_t seen) { syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, seen, nullptr); }
  /** For so long at most, below a second. */
  static void Wait(Word& word, std::uint32_t seen, std::chrono::nanoseconds most) {
    const timespec limit{0, most.count()};
    syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, seen, &limit);
  }
  static void Wake(Word& word, int sleepers) { syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, sleepers); }

  /** Tells the processor that somebody looks at a word over and over. */
  static void Pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
  }
};

}  // namespace vorn
