// How long calls take: written by the route's thread at each call, read by any.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace vorn {

class CallTimes {
 public:
  using Time = std::chrono::nanoseconds;

  /** What was seen since the last Clear(). */
  struct Summary {
    std::uint64_t calls = 0;
    Time last{0};
    Time total{0};
    Time p99{0};  ///< To an eighth.
    Time worst{0};
  };

  /** The route's thread. Clear() may come between: it takes effect with the next call. */
  void Add(Time time) {
    if (clears.load(std::memory_order_relaxed) != cleared) Forget();
    const auto nanos = static_cast<std::uint64_t>(std::max<Time::rep>(time.count(), 0));
    last.store(nanos, std::memory_order_relaxed);
    Increase(total, nanos);
    Increase(counts[PlaceOf(nanos)], 1);
    if (nanos > worst.load(std::memory_order_relaxed)) worst.store(nanos, std::memory_order_relaxed);
    if (nanos > worstSinceLook.load(std::memory_order_relaxed)) worstSinceLook.store(nanos, std::memory_order_relaxed);
    Increase(calls, 1);
  }

  /** Any thread: forgets all calls. */
  void Clear() { clears.fetch_add(1, std::memory_order_relaxed); }

  Summary Read() const {
    Summary summary;
    summary.calls = calls.load(std::memory_order_relaxed);
    summary.last = Time(last.load(std::memory_order_relaxed));
    summary.total = Time(total.load(std::memory_order_relaxed));
    summary.worst = Time(worst.load(std::memory_order_relaxed));
    summary.p99 = std::min(Percentile(99), summary.worst);
    return summary;
  }

  /** The worst since this was called last, by anybody. */
  Time TakeWorst() { return Time(worstSinceLook.exchange(0, std::memory_order_relaxed)); }

 private:
  using Counter = std::atomic<std::uint64_t>;

  // Eight places for each power of two: what is below 8 has its own.
  static constexpr unsigned PER_POWER = 8;
  static constexpr std::size_t PLACES = 62 * PER_POWER;

  static std::size_t PlaceOf(std::uint64_t nanos) {
    if (nanos < PER_POWER) return nanos;
    const auto power = static_cast<unsigned>(std::bit_width(nanos)) - 4;  // nanos >> power is 8 to 15
    return power * PER_POWER + (nanos >> power);
  }
  static std::uint64_t EndOf(std::size_t place) {
    if (place < 2 * PER_POWER) return place;
    const std::size_t power = place / PER_POWER - 1;
    return ((place % PER_POWER + PER_POWER + 1) << power) - 1;
  }

  // One writer: no need for a locked instruction.
  static void Increase(Counter& counter, std::uint64_t more) {
    counter.store(counter.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
  }

  void Forget() {
    cleared = clears.load(std::memory_order_relaxed);
    for (Counter* counter : {&calls, &last, &total, &worst, &worstSinceLook}) counter->store(0);
    for (Counter& counter : counts) counter.store(0, std::memory_order_relaxed);
  }

  Time Percentile(unsigned percent) const {
    std::uint64_t all = 0;
    for (const Counter& counter : counts) all += counter.load(std::memory_order_relaxed);
    std::uint64_t left = all - all * percent / 100;
    for (std::size_t place = PLACES; place-- > 0;) {
      const std::uint64_t here = counts[place].load(std::memory_order_relaxed);
      if (here >= left && here > 0) return Time(EndOf(place));
      left -= std::min(left, here);
    }
    return Time(0);
  }

  std::atomic<unsigned> clears{0};
  unsigned cleared = 0;
  Counter calls{0}, last{0}, total{0}, worst{0}, worstSinceLook{0};
  std::array<Counter, PLACES> counts{};
};

}  // namespace vorn
