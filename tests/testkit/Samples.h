// Samples of any format as numbers, written as plainly as can be, to hold the fast code against.
#pragma once

#include <cmath>
#include <cstring>
#include <random>

#include <vorn/Block.h>

namespace testkit {

constexpr vorn::SampleFormat FORMATS[] = {
    vorn::SampleFormat::BYTE,    vorn::SampleFormat::S16_LE,   vorn::SampleFormat::S16_BE,
    vorn::SampleFormat::S32_LE,  vorn::SampleFormat::S32_BE,   vorn::SampleFormat::S24_3LE,
    vorn::SampleFormat::S24_3BE, vorn::SampleFormat::FLOAT_LE, vorn::SampleFormat::FLOAT_BE};

inline bool IsFloat(vorn::SampleFormat f) {
  return f == vorn::SampleFormat::FLOAT_LE || f == vorn::SampleFormat::FLOAT_BE;
}
inline bool IsBigEndian(vorn::SampleFormat f) {
  return f == vorn::SampleFormat::S16_BE || f == vorn::SampleFormat::S32_BE || f == vorn::SampleFormat::S24_3BE ||
         f == vorn::SampleFormat::FLOAT_BE;
}
// 2^(b-1) of an integer format, 1 of a float one.
inline double FullScale(vorn::SampleFormat f) {
  return IsFloat(f) ? 1 : std::ldexp(1, 8 * static_cast<int>(vorn::BytesPerSample(f)) - 1);
}

// The nearest sample of the format, saturated, on the format's own scale.
inline double Nearest(vorn::SampleFormat f, double value) {
  if (IsFloat(f)) return static_cast<float>(value);
  return std::fmin(std::fmax(std::nearbyint(value), -FullScale(f)), FullScale(f) - 1);
}

// On the format's own scale: -32768 to 32767 for 16 bits.
inline std::vector<double> Numbers(vorn::SampleFormat f, const std::vector<std::uint8_t>& bytes) {
  const std::size_t width = vorn::BytesPerSample(f);
  std::vector<double> numbers;
  for (std::size_t at = 0; at + width <= bytes.size(); at += width) {
    std::uint32_t bits = 0;
    for (std::size_t k = 0; k < width; ++k) bits = bits << 8 | bytes[at + (IsBigEndian(f) ? k : width - 1 - k)];
    float real;
    std::memcpy(&real, &bits, sizeof real);
    const std::int64_t whole = bits;
    numbers.push_back(
        IsFloat(f) ? real
                   : static_cast<double>(whole < FullScale(f) ? whole : whole - (std::int64_t{1} << (8 * width))));
  }
  return numbers;
}

inline std::vector<std::uint8_t> Bytes(vorn::SampleFormat f, const std::vector<double>& numbers) {
  const std::size_t width = vorn::BytesPerSample(f);
  std::vector<std::uint8_t> bytes;
  for (const double number : numbers) {
    const auto real = static_cast<float>(number);
    auto bits = static_cast<std::uint32_t>(static_cast<std::int64_t>(number));
    if (IsFloat(f)) std::memcpy(&bits, &real, sizeof bits);
    for (std::size_t k = 0; k < width; ++k) {
      bytes.push_back(static_cast<std::uint8_t>(bits >> 8 * (IsBigEndian(f) ? width - 1 - k : k)));
    }
  }
  return bytes;
}

// The same with full scale at -1 to 1, whatever the format.
inline std::vector<double> Decoded(vorn::SampleFormat f, const std::vector<std::uint8_t>& bytes) {
  std::vector<double> levels = Numbers(f, bytes);
  for (double& level : levels) level /= FullScale(f);
  return levels;
}

inline std::vector<std::uint8_t> Encoded(vorn::SampleFormat f, std::vector<double> levels) {
  for (double& level : levels) level = Nearest(f, level * FullScale(f));
  return Bytes(f, levels);
}

// Numbers all over the range of the format, its ends among them; the same for the same count.
inline std::vector<double> RandomNumbers(vorn::SampleFormat f, std::size_t count) {
  std::mt19937 random(static_cast<unsigned>(count));
  std::uniform_real_distribution<double> all(-FullScale(f), FullScale(f));
  std::vector<double> numbers;
  for (std::size_t i = 0; i < count; ++i)
    numbers.push_back(Nearest(f, i % 97 == 0 ? (i % 2 ? 2 : -2) * FullScale(f) : all(random)));
  return numbers;
}

}  // namespace testkit
