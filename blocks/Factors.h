/** What the values of a frame are multiplied by while a gain moves, for loops over a piece of the frame. */
#pragma once

#include <cstddef>
#include <cstdint>

#include <vorn/kit/Ramp.h>

constexpr std::size_t PIECE = 512;  // values at a time: what is made of them stays in the nearest cache

/** Of `count` values, from value `first` of the frame on: line.At(i / channels), in a loop that vectorises. */
inline void FillFactors(vorn::Ramp::Line line, std::size_t channels, std::size_t first, double* to, std::size_t count) {
  // The middle of a value is never so close to the next sample that a rounding could bring it there.
  const double middle = static_cast<double>(first % channels) + 0.5;
  const std::size_t whole = first / channels;
  const auto sample = static_cast<double>(whole);
  const double each = 1 / static_cast<double>(channels);
  for (std::int32_t i = 0; i < static_cast<std::int32_t>(count); ++i) {
    to[i] = line.start + line.step * (sample + static_cast<std::int32_t>((middle + i) * each));
  }
}
