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

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
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

namespace codec {

/** Four packed samples are three words, and that vectorises, which single bytes do not. The last ones go one by one. */
template <SampleFormat F>
inline void Unpack(const std::uint8_t* __restrict from, std::int32_t* __restrict to, std::size_t count) {
  constexpr bool IS_SWAPPED = FormatLayout<F>::IS_SWAPPED;
  const auto signedTop = [](std::uint32_t word) { return static_cast<std::int32_t>(word) >> 8; };
  const std::size_t fours = count / 4;
  for (std::size_t i = 0; i < fours; ++i) {
    const auto a = LoadWord<std::uint32_t, IS_SWAPPED>(from + 12 * i);
    const auto b = LoadWord<std::uint32_t, IS_SWAPPED>(from + 12 * i + 4);
    const auto c = LoadWord<std::uint32_t, IS_SWAPPED>(from + 12 * i + 8);
    to[4 * i] = signedTop(FormatLayout<F>::IS_BIG_ENDIAN ? a : a << 8);
    to[4 * i + 1] = signedTop(FormatLayout<F>::IS_BIG_ENDIAN ? a << 24 | b >> 8 : b << 16 | a >> 16);
    to[4 * i + 2] = signedTop(FormatLayout<F>::IS_BIG_ENDIAN ? b << 16 | c >> 16 : c << 24 | b >> 8);
    to[4 * i + 3] = signedTop(FormatLayout<F>::IS_BIG_ENDIAN ? c << 8 : c);
  }
  for (std::size_t i = 4 * fours; i < count; ++i) to[i] = LoadSample<F>(from + 3 * i);
}

template <SampleFormat F>
inline void Pack(const std::int32_t* __restrict from, std::uint8_t* __restrict to, std::size_t count) {
  constexpr bool IS_SWAPPED = FormatLayout<F>::IS_SWAPPED;
  const std::size_t fours = count / 4;
  for (std::size_t i = 0; i < fours; ++i) {
    const std::uint32_t a = BitCast<std::uint32_t>(from[4 * i]) & 0xFFFFFFU;
    const std::uint32_t b = BitCast<std::uint32_t>(from[4 * i + 1]) & 0xFFFFFFU;
    const std::uint32_t c = BitCast<std::uint32_t>(from[4 * i + 2]) & 0xFFFFFFU;
    const std::uint32_t d = BitCast<std::uint32_t>(from[4 * i + 3]) & 0xFFFFFFU;
    StoreWord<IS_SWAPPED>(FormatLayout<F>::IS_BIG_ENDIAN ? a << 8 | b >> 16 : a | b << 24, to + 12 * i);
    StoreWord<IS_SWAPPED>(FormatLayout<F>::IS_BIG_ENDIAN ? b << 16 | c >> 8 : b >> 8 | c << 16, to + 12 * i + 4);
    StoreWord<IS_SWAPPED>(FormatLayout<F>::IS_BIG_ENDIAN ? c << 24 | d : c >> 16 | d << 8, to + 12 * i + 8);
  }
  for (std::size_t i = 4 * fours; i < count; ++i) StoreSample<F>(from[i], to + 3 * i);
}

/** Calls work(run, first, length) with room for the packed samples `first` to `first + length - 1`, until it had all. */
template <class Work>
inline void ForRuns(std::size_t count, Work work) {
  alignas(64) std::int32_t run[256];
  for (std::size_t first = 0; first < count; first += std::size(run)) {
    work(run, first, std::min(std::size(run), count - first));
  }
}

}  // namespace codec

/** Calls use(i, sample) for samples 0 to count - 1, in a loop that vectorises for every format if `use` does. */
template <SampleFormat F, class Use>
inline void ReadSamples(const std::uint8_t* __restrict from, std::size_t count, Use use) {
  if constexpr (BytesPerSample(F) == 3) {
    codec::ForRuns(count, [=](std::int32_t* run, std::size_t first, std::size_t length) {
      codec::Unpack<F>(from + 3 * first, run, length);
      for (std::size_t i = 0; i < length; ++i) use(first + i, run[i]);
    });
  } else {
    for (std::size_t i = 0; i < count; ++i) use(i, LoadSample<F>(from + BytesPerSample(F) * i));
  }
}

/** Stores make(i), which is in the format's range, as samples 0 to count - 1. */
template <SampleFormat F, class Make>
inline void WriteSamples(std::uint8_t* __restrict to, std::size_t count, Make make) {
  if constexpr (BytesPerSample(F) == 3) {
    codec::ForRuns(count, [=](std::int32_t* run, std::size_t first, std::size_t length) {
      for (std::size_t i = 0; i < length; ++i) run[i] = make(first + i);
      codec::Pack<F>(run, to + 3 * first, length);
    });
  } else {
    for (std::size_t i = 0; i < count; ++i) StoreSample<F>(make(i), to + BytesPerSample(F) * i);
  }
}

/** Stores change(i, sample) for samples 0 to count - 1. */
template <SampleFormat F, class Change>
inline void ChangeSamples(const std::uint8_t* __restrict from, std::uint8_t* __restrict to, std::size_t count,
                          Change change) {
  if constexpr (BytesPerSample(F) == 3) {
    codec::ForRuns(count, [=](std::int32_t* run, std::size_t first, std::size_t length) {
      codec::Unpack<F>(from + 3 * first, run, length);
      for (std::size_t i = 0; i < length; ++i) run[i] = change(first + i, run[i]);
      codec::Pack<F>(run, to + 3 * first, length);
    });
  } else {
    constexpr std::size_t BYTES = BytesPerSample(F);
    for (std::size_t i = 0; i < count; ++i) StoreSample<F>(change(i, LoadSample<F>(from + BYTES * i)), to + BYTES * i);
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
  std::int32_t operator()(Real value) const { return OfNumber(value == value ? value : 0); }

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
  ReadSamples<F>(from, count, [=](std::size_t i, SampleValue<F> sample) { to[i] = static_cast<Real>(sample) * SCALE; });
}

/** `count` samples of floating point to format F. The two must not overlap. */
template <SampleFormat F, class Real>
inline void EncodeAs(const Real* __restrict from, std::uint8_t* __restrict to, std::size_t count) {
  using Layout = FormatLayout<F>;
  using Work = std::conditional_t<Layout::IS_FLOAT || Layout::BYTES <= 2, Real, double>;
  constexpr Work SCALE = static_cast<Work>(Layout::FULL_SCALE);
  const SampleRounder<F, Work> round;
  WriteSamples<F>(to, count, [=](std::size_t i) { return round(static_cast<Work>(from[i]) * SCALE); });
}

namespace codec {

#if defined(__GNUC__) && defined(__x86_64__)
template <class Loop>
[[gnu::target("avx2"), gnu::flatten, gnu::noinline]] void RunOnAvx2(Loop loop) {
  loop();
}
#endif

}  // namespace codec

/**
 * Calls loop(), which is compiled twice: for vectors of 256 bits, where the processor has them, and for any processor.
 *
 *     OnVectors([=] { for (std::size_t i = 0; i < count; ++i) to[i] = factor * from[i]; });
 *
 * A loop that keeps its variables as copies vectorises best: a store cannot change them then. Both versions give the
 * same bits, as AVX2 does not bring the fused multiplication, which rounds differently. The compiler's own clones of a
 * function (target_clones) stand on ifunc, which sanitizers do not have, and are none for templates.
 */
template <class Loop>
inline void OnVectors(Loop loop) {
#if defined(__GNUC__) && defined(__x86_64__)
  if (__builtin_cpu_supports("avx2")) return codec::RunOnAvx2(loop);
#endif
  loop();
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
  WithFormat(format, [=](auto f) {
    OnVectors([=] { DecodeAs<decltype(f)::value>(static_cast<const std::uint8_t*>(from), to, count); });
  });
}

/** `count` samples (of all channels together) from float or double. `from` and `to` must not overlap. */
template <class Real>
inline void Encode(SampleFormat format, const Real* from, void* to, std::size_t count) {
  WithFormat(format, [=](auto f) {
    OnVectors([=] { EncodeAs<decltype(f)::value>(from, static_cast<std::uint8_t*>(to), count); });
  });
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
