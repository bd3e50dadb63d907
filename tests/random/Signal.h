// Whole streams, worked out without frames, cycles or threads.
#pragma once

#include <memory>

#include "testkit/Samples.h"

namespace randomgraphs {

using Levels = std::vector<double>;

/** Full scale is -1 to 1, channels are interleaved. */
struct Signal {
  long samples = 0;
  unsigned channels = 1;
  std::shared_ptr<const Levels> levels = {};  ///< None where only the count is known.
};
using Signals = std::vector<Signal>;

inline std::size_t CountOf(long samples, unsigned channels) { return static_cast<std::size_t>(samples) * channels; }

inline double At(const Signal& signal, long sample, std::size_t channel) {
  const bool isThere = sample >= 0 && sample < signal.samples;
  return isThere ? (*signal.levels)[CountOf(sample, signal.channels) + channel] : 0;
}

/** What is left in this format of what `level` says of the samples so far, a sample and a channel. */
template <class Level>
Signal Make(long samples, unsigned channels, vorn::SampleFormat format, const Level& level) {
  const double scale = testkit::FullScale(format);
  Levels levels;
  levels.reserve(CountOf(samples, channels));
  for (long k = 0; k < samples; ++k) {
    for (unsigned c = 0; c < channels; ++c)
      levels.push_back(testkit::Nearest(format, level(levels, k, c) * scale) / scale);
  }
  return {samples, channels, std::make_shared<const Levels>(std::move(levels))};
}

/** The same, as long as the longest input and `more`; where one is not known, neither is this. */
template <class Level>
Signal MakeOf(const Signals& in, long more, unsigned channels, vorn::SampleFormat format, const Level& level) {
  Signal made{0, channels};
  bool isKnown = true;
  for (const Signal& signal : in) {
    made.samples = std::max(made.samples, signal.samples + more);
    isKnown = isKnown && (signal.levels || signal.samples == 0);
  }
  return isKnown ? Make(made.samples, channels, format, level) : made;
}

/** The values that a file of this format holds: small, so that sums of a few stay exact. */
inline std::uint64_t HighestOf(vorn::SampleFormat format) {
  switch (vorn::BytesPerSample(format)) {
    case 1: return 7;
    case 2: return 1000;
    case 3: return 200000;
    default: return testkit::IsFloat(format) ? 4096 : 1U << 26;
  }
}

/** What the file of a node holds: never silence, and another level at every place of every file. */
inline Signal FileContents(std::size_t node, long samples, unsigned channels, vorn::SampleFormat format) {
  return Make(samples, channels, format, [&](const auto&, long k, std::size_t c) {
    std::uint64_t mixed = (static_cast<std::uint64_t>(node) << 40) + CountOf(k, channels) + c + 1;
    mixed = (mixed ^ mixed >> 31) * 0x9E3779B97F4A7C15U;
    mixed = (mixed ^ mixed >> 29) * 0xBF58476D1CE4E5B9U;
    const auto value = static_cast<double>(1 + (mixed ^ mixed >> 32) % HighestOf(format));
    return value / (testkit::IsFloat(format) ? 65536 : testkit::FullScale(format));
  });
}

}  // namespace randomgraphs
