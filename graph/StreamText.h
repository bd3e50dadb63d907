// What flows through a link, as people write and read it.
#pragma once

#include <string_view>

#include "GraphDescription.h"

namespace vorn::graph {

/** A whole number in a range. */
std::optional<long> NumberIn(std::string_view text, long lowest, long highest);

/** rate, format, channels or frame. */
bool IsStreamField(std::string_view name);

/** @return what was expected instead, when the value is none for this field. */
std::optional<std::string> SetField(Stream& stream, std::string_view name, std::string_view value);

/** Whether what is known of a stream is in the range of its fields, as SetField has them. */
bool CanBe(const Stream& stream);

/** Settles what is open: 48000 Hz, S16_LE, 2 channels, and frames of 10 ms. */
void Settle(Stream& stream);

/** 48000 Hz S16_LE stereo, 480 samples a frame; only what is known. */
std::string Describe(const Stream& stream);

/** The fields that both know and that differ. */
struct Difference {
  bool rate = false;
  bool format = false;
  bool channels = false;
  bool frame = false;

  bool Any() const { return rate || format || channels || frame; }
};
Difference Compare(const Stream& a, const Stream& b);

/** The fields named in `which`: 48000 Hz stereo. */
std::string Describe(const Stream& stream, const Difference& which);

/** The blocks that make one stream of another: 'resample' and 'remap'. */
std::string Menders(const Difference& difference);

}  // namespace vorn::graph
