/**
 * Samples of the nine formats to floating point and back, in loops that the compiler vectorises (at -O3).
 *
 *     vorn::FloatFrame x;                 // a member of the block
 *     x.Prepare(In());                    // in Prepare(): room for a frame
 *     float* samples = x.Read(In());      // in Process(): interleaved, full scale is -1 to 1
 *     x.Write(Out(), In().samples);       // to the format of the output
 *
 * An integer sample of b bits is divided by 2^(b-1), so that its lowest value is exactly -1. On the way back it is
 * multiplied by the same, saturates at the ends of its range and is rounded to the nearest value, ties to the even one;
 * NaN gives 0. Thus float carries 8, 16 and 24-bit samples there and back exactly, and double 32-bit ones as well;
 * through float, S32 keeps 24 significant bits. Float samples pass as they are, beyond full scale too.
 *
 * BYTE is a signed 8-bit sample: as in all formats, zero bytes are silence.
 */
#ifndef VORN_SAMPLE_CODEC_H
#define VORN_SAMPLE_CODEC_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include <vorn/Block.h>

namespace vorn {

/** How a format lies in memory: its width, byte order, and whether it is an integer. */
template <SampleFormat F>
struct FormatLayout {
  static constexpr bool IS_FLOAT = F == SampleFormat::FLOAT_LE || F == SampleFormat::FLOAT_BE;
  static constexpr bool IS_BIG_ENDIAN = F == SampleFormat::S16_BE || F == SampleFormat::S32_BE ||
                                        F == SampleFormat::S24_3BE || F == SampleFormat::FLOAT_BE;
  static constexpr bool IS_SWAPPED = IS_BIG_ENDIAN != (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__);
  static constexpr std::size_t BYTES = BytesPerSample(F);
  /** 2^(b-1) for an integer of b bits, 1 for a float. */
  static constexpr double FULL_SCALE = IS_FLOAT ? 1 : static_cast<double>(std::uint64_t{1} << (8 * BYTES - 1));
};

namespace codec {

template <class To, class From>
To BitCast(From from) {
  static_assert(sizeof(To) == sizeof(From));
  To to;
  std::memcpy(&to, &from, sizeof to);
  return to;
}

constexpr std::uint32_t Swap(std::uint32_t v) { return v << 24 | (v & 0xFF00U) << 8 | (v >> 8 & 0xFF00U) | v >> 24; }
constexpr std::uint16_t Swap(std::uint16_t v) { return static_cast<std::uint16_t>(v << 8 | v >> 8); }

template <class Word, bool IS_SWAPPED>
Word LoadWord(const std::uint8_t* from) {
  Word word;
  std::memcpy(&word, from, sizeof word);
  if constexpr (IS_SWAPPED) word = Swap(word);
  return word;
}

template <bool IS_SWAPPED, class Word>
void StoreWord(Word word, std::uint8_t* to) {
  if constexpr (IS_SWAPPED) word = Swap(word);
  std::memcpy(to, &word, sizeof word);
}

}  // namespace codec

/** A sample as it stands: a float, or a whole number such as -32768 to 32767 for the 16-bit formats. */
template <SampleFormat F>
using SampleValue = std::conditional_t<FormatLayout<F>::IS_FLOAT, float, std::int32_t>;

template <SampleFormat F>
inline SampleValue<F> LoadSample(const std::uint8_t* from) {
  using Layout = FormatLayout<F>;
  if constexpr (Layout::BYTES == 1) {
    return static_cast<std::int8_t>(*from);
  } else if constexpr (Layout::BYTES == 2) {
    return static_cast<std::int16_t>(codec::LoadWord<std::uint16_t, Layout::IS_SWAPPED>(from));
  } else if constexpr (Layout::BYTES == 3) {
    constexpr std::size_t LOW = Layout::IS_BIG_ENDIAN ? 2 : 0;
    return static_cast<std::int8_t>(from[2 - LOW]) * 65536 + (from[1] << 8 | from[LOW]);
  } else {
    return codec::BitCast<SampleValue<F>>(codec::LoadWord<std::uint32_t, Layout::IS_SWAPPED>(from));
  }
}

/** Stores a sample that is in the format's range. */
template <SampleFormat F>
inline void StoreSample(SampleValue<F> sample, std::uint8_t* to) {
  using Layout = FormatLayout<F>;
  const auto bits = codec::BitCast<std::uint32_t>(sample);
  if constexpr (Layout::BYTES == 1) {
    *to = static_cast<std::uint8_t>(bits);
  } else if constexpr (Layout::BYTES == 2) {
    codec::StoreWord<Layout::IS_SWAPPED>(static_cast<std::uint16_t>(bits), to);
  } else if constexpr (Layout::BYTES == 3) {
    constexpr std::size_t LOW = Layout::IS_BIG_ENDIAN ? 2 : 0;
    to[LOW] = static_cast<std::uint8_t>(bits);
    to[1] = static_cast<std::uint8_t>(bits >> 8);
    to[2 - LOW] = static_cast<std::uint8_t>(bits >> 16);
  } else {
    codec::StoreWord<Layout::IS_SWAPPED>(bits, to);
  }
}

/**
 * Makes samples of values on the scale of the format (32767 is the highest of a 16-bit one): saturates them to its
 * range and rounds them to the nearest whole number, ties to even. For a float format, just a float.
 *
 *     const SampleRounder<F, double> round;                     // made before the loop
 *     for (...) StoreSample<F>(round(LoadSample<F>(from) * factor), to);
 *
 * Made so that a loop over it vectorises on every x86-64, where the library's functions do not: adding 1.5 * 2^m, m
 * being the bits of the mantissa, leaves the whole number in the low bits of the sum. A float has room for that up to
 * 2^22, so wider formats take double. The limits are variables that the compiler cannot see through: it would make
 * branches of constants.
 */
template <SampleFormat F, class Real, bool IS_FLOAT = FormatLayout<F>::IS_FLOAT>
class SampleRounder {
  static constexpr bool IS_DOUBLE = std::is_same_v<Real, double>;
  static_assert(IS_DOUBLE || FormatLayout<F>::BYTES <= 2, "a float cannot round this format");

 public:
  /** NaN gives 0. */
  std::int32_t operator()(Real value) const { return OfNumber(value == value ? value : zero); }

  /** For a value that is no NaN. */
  std::int32_t OfNumber(Real value) const {
    value = value < highest ? value : highest;
    value = value > lowest ? value : lowest;
    if constexpr (IS_DOUBLE) {
      return static_cast<std::int32_t>(codec::BitCast<std::int64_t>(value + 6755399441055744.0));
    } else {
      return codec::BitCast<std::int32_t>(value + 12582912.0F) - codec::BitCast<std::int32_t>(12582912.0F);
    }
  }

 private:
  static Real Hidden(Real value) {
    volatile Real hidden = value;
    return hidden;
  }

  Real highest = Hidden(static_cast<Real>(FormatLayout<F>::FULL_SCALE - 1));
  Real lowest = Hidden(static_cast<Real>(-FormatLayout<F>::FULL_SCALE));
  Real zero = Hidden(0);
};

template <SampleFormat F, class Real>
class SampleRounder<F, Real, true> {
 public:
  float operator()(Real value) const { return static_cast<float>(value); }
  float OfNumber(Real value) const { return static_cast<float>(value); }
};

/** `count` samples of format F to floating point. The two must not overlap. */
template <SampleFormat F, class Real>
inline void DecodeAs(const std::uint8_t* __restrict from, Real* __restrict to, std::size_t count) {
  constexpr Real SCALE = static_cast<Real>(1 / FormatLayout<F>::FULL_SCALE);
  for (std::size_t i = 0; i < count; ++i) {
    to[i] = static_cast<Real>(LoadSample<F>(from + BytesPerSample(F) * i)) * SCALE;
  }
}

/** `count` samples of floating point to format F. The two must not overlap. */
template <SampleFormat F, class Real>
inline void EncodeAs(const Real* __restrict from, std::uint8_t* __restrict to, std::size_t count) {
  using Layout = FormatLayout<F>;
  using Work = std::conditional_t<Layout::IS_FLOAT || Layout::BYTES <= 2, Real, double>;
  constexpr Work SCALE = static_cast<Work>(Layout::FULL_SCALE);
  const SampleRounder<F, Work> round;
  for (std::size_t i = 0; i < count; ++i) {
    StoreSample<F>(round(static_cast<Work>(from[i]) * SCALE), to + Layout::BYTES * i);
  }
}

/** Calls `work` with the format as a compile-time constant: work(std::integral_constant<SampleFormat, F>{}). */
template <class Work>
inline void WithFormat(SampleFormat format, Work&& work) {
  switch (format) {
    case SampleFormat::BYTE: return work(std::integral_constant<SampleFormat, SampleFormat::BYTE>{});
    case SampleFormat::S16_LE: return work(std::integral_constant<SampleFormat, SampleFormat::S16_LE>{});
    case SampleFormat::S16_BE: return work(std::integral_constant<SampleFormat, SampleFormat::S16_BE>{});
    case SampleFormat::S32_LE: return work(std::integral_constant<SampleFormat, SampleFormat::S32_LE>{});
    case SampleFormat::S32_BE: return work(std::integral_constant<SampleFormat, SampleFormat::S32_BE>{});
    case SampleFormat::S24_3LE: return work(std::integral_constant<SampleFormat, SampleFormat::S24_3LE>{});
    case SampleFormat::S24_3BE: return work(std::integral_constant<SampleFormat, SampleFormat::S24_3BE>{});
    case SampleFormat::FLOAT_LE: return work(std::integral_constant<SampleFormat, SampleFormat::FLOAT_LE>{});
    case SampleFormat::FLOAT_BE: return work(std::integral_constant<SampleFormat, SampleFormat::FLOAT_BE>{});
  }
}

/** `count` samples (of all channels together) to float or double. `from` and `to` must not overlap. */
template <class Real>
inline void Decode(SampleFormat format, const void* from, Real* to, std::size_t count) {
  WithFormat(format, [&](auto f) { DecodeAs<decltype(f)::value>(static_cast<const std::uint8_t*>(from), to, count); });
}

/** `count` samples (of all channels together) from float or double. `from` and `to` must not overlap. */
template <class Real>
inline void Encode(SampleFormat format, const Real* from, void* to, std::size_t count) {
  WithFormat(format, [&](auto f) { EncodeAs<decltype(f)::value>(from, static_cast<std::uint8_t*>(to), count); });
}

/** A frame in floating point, interleaved as in the frame buffer. Allocates in Prepare, and where a link's frames outgrew that. */
template <class Real>
class RealFrame {
 public:
  /** Makes room for frames of this stream. */
  void Prepare(const FrameBuffer& stream) { Grow(static_cast<std::size_t>(stream.samplesPerFrame) * stream.channels); }

  Real* Read(const FrameBuffer& fb) {
    const std::size_t count = static_cast<std::size_t>(fb.samples) * fb.channels;
    Grow(count);
    Decode(fb.format, fb.data, values.data(), count);
    return values.data();
  }

  /** Fills an output from the values and says how many samples it holds. There must be room for them. */
  void Write(FrameBuffer& fb, long samples) const {
    Encode(fb.format, values.data(), fb.data, static_cast<std::size_t>(samples) * fb.channels);
    fb.samples = samples;
  }

  Real* Data() { return values.data(); }

 private:
  void Grow(std::size_t count) {
    if (values.size() < count) values.resize(count);
  }

  std::vector<Real> values;
};

using FloatFrame = RealFrame<float>;
using DoubleFrame = RealFrame<double>;

}  // namespace vorn

#endif
