/** Part of <vorn/Plugin.h>: names of sample formats, sets of them, and what is known of a stream. */
#ifndef VORN_KIT_STREAMS_H
#define VORN_KIT_STREAMS_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include <vorn/Block.h>

namespace vorn {

constexpr std::uint32_t FORMAT_COUNT = 9;

/** "S16_LE" and so on; "?" for a value that is no sample format. */
inline const char* FormatName(SampleFormat format) {
  static constexpr const char* NAMES[FORMAT_COUNT] = {"BYTE",    "S16_LE",  "S16_BE",   "S32_LE",  "S32_BE",
                                                      "S24_3LE", "S24_3BE", "FLOAT_LE", "FLOAT_BE"};
  const auto i = static_cast<std::uint32_t>(format);
  return i < FORMAT_COUNT ? NAMES[i] : "?";
}

/** The format of that name, exactly as FormatName writes it. @return false, and `format` as it was, for another text. */
inline bool ParseFormat(std::string_view name, SampleFormat& format) {
  for (std::uint32_t i = 0; i < FORMAT_COUNT; ++i) {
    if (name != FormatName(static_cast<SampleFormat>(i))) continue;
    format = static_cast<SampleFormat>(i);
    return true;
  }
  return false;
}

/** A set of sample formats: bit n for the format of number n. */
using FormatSet = std::uint32_t;
constexpr FormatSet ALL_FORMATS = (1U << FORMAT_COUNT) - 1;

constexpr FormatSet FormatBit(SampleFormat format) {
  const auto i = static_cast<std::uint32_t>(format);
  return i < FORMAT_COUNT ? 1U << i : 0U;
}

constexpr FormatSet Formats(std::initializer_list<SampleFormat> formats) {
  FormatSet set = 0;
  for (const SampleFormat format : formats) set |= FormatBit(format);
  return set;
}

/** The names of a set, separated by blanks. */
inline std::string FormatNames(FormatSet set) {
  std::string names;
  for (std::uint32_t i = 0; i < FORMAT_COUNT; ++i) {
    if ((set >> i & 1U) == 0) continue;
    if (!names.empty()) names += ' ';
    names += FormatName(static_cast<SampleFormat>(i));
  }
  return names;
}

/** The format that this machine computes in: FLOAT_LE on a little-endian one. */
constexpr SampleFormat NATIVE_FLOAT =
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? SampleFormat::FLOAT_LE : SampleFormat::FLOAT_BE;

/** Bytes that the samples in a frame take. */
inline std::size_t FrameBytes(const FrameBuffer& fb) {
  return static_cast<std::size_t>(fb.samples) * fb.channels * BytesPerSample(fb.format);
}

/** The time stamp of the sample that comes after a frame; -1 when the frame has none. */
inline long StampBehind(const FrameBuffer& fb) {
  return fb.timestamp < 0 || fb.rate == 0 ? -1 : fb.timestamp + fb.samples * 1000000 / fb.rate;
}

/** What is known of the stream at an endpoint. Every field has a value that says "not known". Plain C layout. */
struct Stream {
  std::uint32_t linked = 0;    ///< 0: nothing is linked to this endpoint.
  std::uint32_t rate = 0;      ///< Hz; 0: not known.
  std::int32_t format = -1;    ///< Number of the SampleFormat; -1: not known.
  std::uint32_t channels = 0;  ///< 0: not known.
  std::int64_t frame = 0;      ///< Samples per frame; 0: not known.
  std::int64_t length = -1;    ///< Samples until the end of the stream; -1: not known, or endless.

  void SetFormat(SampleFormat value) { format = static_cast<std::int32_t>(value); }

  /** Fills in what is not known yet from another stream. `linked` stays. */
  void Complete(const Stream& from) {
    if (rate == 0) rate = from.rate;
    if (format < 0) format = from.format;
    if (channels == 0) channels = from.channels;
    if (frame == 0) frame = from.frame;
    if (length < 0) length = from.length;
  }
};

/** The stream of a linked endpoint. */
inline Stream StreamOf(const FrameBuffer& fb) {
  Stream stream;
  stream.linked = 1;
  stream.rate = fb.rate;
  stream.SetFormat(fb.format);
  stream.channels = fb.channels;
  stream.frame = fb.samplesPerFrame;
  return stream;
}

/** Samples until the last of these streams ends; -1 where that of one is not known. */
inline std::int64_t LongestOf(const std::vector<Stream>& streams) {
  std::int64_t longest = 0;
  for (const Stream& stream : streams) {
    if (stream.linked == 0) continue;
    if (stream.length < 0) return -1;
    if (stream.length > longest) longest = stream.length;
  }
  return longest;
}

/** "rate=48000 format=S16_LE channels=2 frame=480 length=123456": the fields that are known, in this order. */
inline std::string StreamText(const Stream& stream) {
  std::string text;
  const auto field = [&text](const char* name, const std::string& value) {
    if (!text.empty()) text += ' ';
    text += name;
    text += '=';
    text += value;
  };
  if (stream.rate != 0) field("rate", std::to_string(stream.rate));
  if (stream.format >= 0) field("format", FormatName(static_cast<SampleFormat>(stream.format)));
  if (stream.channels != 0) field("channels", std::to_string(stream.channels));
  if (stream.frame > 0) field("frame", std::to_string(stream.frame));
  if (stream.length >= 0) field("length", std::to_string(stream.length));
  return text;
}

}  // namespace vorn

#endif
