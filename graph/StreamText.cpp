#include "StreamText.h"

#include <algorithm>
#include <charconv>

namespace vorn::graph {
namespace {

constexpr long HIGHEST_RATE = 10'000'000;
constexpr long MOST_CHANNELS = 1024;
constexpr long LONGEST_FRAME = 10'000'000;

template <class Number>
std::optional<std::string> SetNumber(Number& field, std::string_view text, long highest) {
  const auto number = NumberIn(text, 1, highest);
  if (!number) return "a whole number from 1 to " + std::to_string(highest);
  field = static_cast<Number>(*number);
  return std::nullopt;
}

std::string ChannelsText(std::uint32_t channels) {
  if (channels == 1) return "mono";
  if (channels == 2) return "stereo";
  return std::to_string(channels) + " channels";
}

std::string Join(const std::vector<std::string>& texts, const std::string& between, const std::string& beforeLast) {
  std::string all;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i > 0) all += i + 1 == texts.size() ? beforeLast : between;
    all += texts[i];
  }
  return all;
}

}  // namespace

std::optional<long> NumberIn(std::string_view text, long lowest, long highest) {
  long number = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  if (read.ec != std::errc() || read.ptr != text.data() + text.size()) return std::nullopt;
  if (number < lowest || number > highest) return std::nullopt;
  return number;
}

bool IsStreamField(std::string_view name) {
  return name == "rate" || name == "format" || name == "channels" || name == "frame";
}

std::optional<std::string> SetField(Stream& stream, std::string_view name, std::string_view value) {
  if (name == "rate") return SetNumber(stream.rate, value, HIGHEST_RATE);
  if (name == "channels") return SetNumber(stream.channels, value, MOST_CHANNELS);
  if (name == "frame") return SetNumber(stream.frame, value, LONGEST_FRAME);
  SampleFormat format{};
  if (!ParseFormat(value, format)) return "one of " + FormatNames(ALL_FORMATS);
  stream.SetFormat(format);
  return std::nullopt;
}

bool CanBe(const Stream& stream) {
  return stream.rate <= HIGHEST_RATE && stream.channels <= MOST_CHANNELS && stream.frame >= 0 &&
         stream.frame <= LONGEST_FRAME && stream.format < static_cast<std::int32_t>(FORMAT_COUNT);
}

void Settle(Stream& stream) {
  Stream defaults;
  defaults.rate = 48000;
  defaults.SetFormat(SampleFormat::S16_LE);
  defaults.channels = 2;
  stream.Complete(defaults);
  if (stream.frame == 0) stream.frame = std::max(1U, stream.rate / 100);
}

std::string Describe(const Stream& stream) { return Describe(stream, {true, true, true, true}); }

Difference Compare(const Stream& a, const Stream& b) {
  const auto differ = [](auto x, auto y, auto unknown) { return x != unknown && y != unknown && x != y; };
  return {differ(a.rate, b.rate, 0U), differ(a.format, b.format, -1), differ(a.channels, b.channels, 0U),
          differ(a.frame, b.frame, 0L)};
}

std::string Describe(const Stream& stream, const Difference& which) {
  std::vector<std::string> fields;
  if (which.rate && stream.rate > 0) fields.push_back(std::to_string(stream.rate) + " Hz");
  if (which.format && stream.format >= 0) fields.emplace_back(FormatName(static_cast<SampleFormat>(stream.format)));
  if (which.channels && stream.channels > 0) fields.push_back(ChannelsText(stream.channels));
  std::string text = Join(fields, " ", " ");
  if (!which.frame || stream.frame <= 0) return text;
  if (!text.empty()) text += ", ";
  return text + std::to_string(stream.frame) + " samples a frame";
}

std::string Menders(const Difference& difference) {
  std::vector<std::string> blocks;
  if (difference.rate) blocks.emplace_back("'resample'");
  if (difference.format) blocks.emplace_back("'convert'");
  if (difference.channels) blocks.emplace_back("'remap'");
  if (difference.frame && !difference.rate) blocks.emplace_back("'reframe'");
  return Join(blocks, ", ", " and ");
}

}  // namespace vorn::graph
