// What the waves of `tone` are made of.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

constexpr double TURN = 6.283185307179586;  // in radians

/** Where a wave of steady frequency is. Counted in 2^-64 of a turn, so it wraps by itself and adds up without error. */
class Phase {
 public:
  /** Goes on from where it is. Half the rate is the most. */
  void SetFrequency(double frequency, double rate) {
    step = static_cast<std::uint64_t>(std::ldexp(std::min(frequency / rate, 0.5), 64));
  }

  /** In turns, from 0 to 1. */
  double Next() {
    const std::uint64_t now = phase;
    phase += step;
    return std::ldexp(static_cast<double>(now), -64);
  }

 private:
  std::uint64_t phase = 0;
  std::uint64_t step = 0;
};

/** A frequency that grows by the same factor in every second, and starts over when it is through, without a jump. */
class Sweep {
 public:
  Sweep() = default;
  Sweep(double from, double to, double seconds, double rate)
      : start(from / rate), growth(std::log(to / from)), period(std::max(1L, std::lround(seconds * rate))) {}

  /** Turns of the wave since sample 0, whole ones left out where there are many. */
  double TurnsAt(long sample) const {
    const long sweeps = sample / period;
    return std::fmod(static_cast<double>(sweeps) * Turns(period), 1) + Turns(sample % period);
  }

 private:
  double Turns(long sample) const {
    const auto n = static_cast<double>(sample);
    const auto whole = static_cast<double>(period);
    return growth == 0 ? start * n : start * whole / growth * std::expm1(growth * n / whole);
  }

  double start = 0;   // turns a sample
  double growth = 0;  // over a period, as a natural logarithm
  long period = 1;    // samples
};

/** Noise of an RMS of 1: white (evenly distributed), or pink, which falls by 3 dB an octave from 20 Hz to 20 kHz. */
class Noise {
 public:
  Noise(bool isPink, double rate, std::uint32_t seed, std::uint32_t channel) {
    std::seed_seq seeds{seed, channel};
    random.seed(seeds);
    constexpr double LOWEST_CORNER = 5;
    for (double corner = rate / 4; isPink && corner > LOWEST_CORNER; corner /= 2) {
      const double keeps = std::exp(-TURN * corner / rate);
      octaves.push_back({keeps, std::sqrt(1 - keeps * keeps), White()});
    }
  }

  // Low-passed noises, equally strong, whose corners are an octave apart, add up to pink within 1 dB.
  double Next() {
    if (octaves.empty()) return White();
    double sum = 0;
    for (Octave& o : octaves) sum += o.value = o.keeps * o.value + o.takes * White();
    return sum / std::sqrt(static_cast<double>(octaves.size()));
  }

 private:
  struct Octave {
    double keeps;
    double takes;
    double value;
  };

  double White() { return std::sqrt(3.0) * (std::ldexp(static_cast<double>(random()) + 0.5, -31) - 1); }

  std::mt19937 random;
  std::vector<Octave> octaves;
};
