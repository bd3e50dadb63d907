// How long the calling thread has slept in FIFOs: who times what it does leaves that out. Counted only while it is
// timed.
#pragma once

#include <chrono>

namespace vorn {

struct SleepTime {
  using Clock = std::chrono::steady_clock;

  /** Counts a sleep, from here to the end of the scope. */
  class Counted {
   public:
    Counted() : begin(isTimed ? Clock::now() : Clock::time_point()) {}
    ~Counted() {
      if (isTimed) total += Clock::now() - begin;
    }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

   private:
    const Clock::time_point begin;
  };

  [[gnu::tls_model("initial-exec")]] static thread_local constinit bool isTimed;
  [[gnu::tls_model("initial-exec")]] static thread_local constinit std::chrono::nanoseconds total;
};

}  // namespace vorn
