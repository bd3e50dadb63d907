// Random choices that are the same everywhere for the same seed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace randomgraphs {

class Dice {
 public:
  explicit Dice(std::uint64_t seed) : state(seed) {}

  /** 0 to `count` - 1. */
  std::size_t Below(std::size_t count) { return Next() % count; }
  long Between(long least, long most) {
    return least + static_cast<long>(Below(static_cast<std::size_t>(most - least + 1)));
  }
  bool Chance(std::size_t percent) { return Below(100) < percent; }
  template <class T>
  const T& Pick(const std::vector<T>& choices) {
    return choices[Below(choices.size())];
  }

 private:
  // SplitMix64.
  std::uint64_t Next() {
    std::uint64_t z = state += 0x9E3779B97F4A7C15U;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9U;
    z = (z ^ z >> 27) * 0x94D049BB133111EBU;
    return z ^ z >> 31;
  }

  std::uint64_t state;
};

}  // namespace randomgraphs
