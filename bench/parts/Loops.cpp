#include "parts/Loops.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>

#include <benchmark/benchmark.h>

// One version of each loop for the vectors of today's processors besides that for any.
#if defined(__x86_64__)
#define VECTOR_LOOP __attribute__((target_clones("avx2", "default")))
#else
#define VECTOR_LOOP
#endif
#define LOOP(name, From, To)                                                                                        \
  VECTOR_LOOP static void name##Loop(const From* __restrict a, const From* __restrict b, To* __restrict out,        \
                                     std::size_t count);                                                            \
  void name(const void* a, const void* b, void* out, std::size_t count) {                                           \
    name##Loop(static_cast<const From*>(a), static_cast<const From*>(b), static_cast<To*>(out), count);             \
  }                                                                                                                 \
  VECTOR_LOOP void name##Loop([[maybe_unused]] const From* __restrict a, [[maybe_unused]] const From* __restrict b, \
                              To* __restrict out, std::size_t count)

namespace bench {
namespace {

const double FIRST = std::pow(10, -6.0 / 20);
const double SECOND = std::pow(10, -3.0 / 20);

inline std::int16_t ToS16(double value) {
  value = value < 32767 ? value : 32767;
  value = value > -32768 ? value : -32768;
  return static_cast<std::int16_t>(__builtin_irint(value));
}

}  // namespace

LOOP(GainS16, std::int16_t, std::int16_t) {
  const double factor = FIRST;
  for (std::size_t i = 0; i < count; ++i) out[i] = ToS16(a[i] * factor);
}
LOOP(GainFloat, float, float) {
  const double factor = FIRST;
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<float>(a[i] * factor);
}
LOOP(MixS16, std::int16_t, std::int16_t) {
  const double first = FIRST, second = SECOND;
  for (std::size_t i = 0; i < count; ++i) out[i] = ToS16(a[i] * first + b[i] * second);
}
LOOP(MixFloat, float, float) {
  const double first = FIRST, second = SECOND;
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<float>(a[i] * first + b[i] * second);
}
LOOP(S16ToFloat, std::int16_t, float) {
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<float>(a[i]) * (1 / 32768.0F);
}
LOOP(FloatToS16, float, std::int16_t) {
  for (std::size_t i = 0; i < count; ++i) {
    const float value = a[i] * 32768.0F;
    const float low = value < 32767.0F ? value : 32767.0F;
    out[i] = static_cast<std::int16_t>(__builtin_irintf(low > -32768.0F ? low : -32768.0F));
  }
}
LOOP(SwapS16Pairs, std::uint32_t, std::uint32_t) {
  for (std::size_t i = 0; i < count / 2; ++i) out[i] = a[i] << 16 | a[i] >> 16;
}
LOOP(TurnFloatEights, float, float) {
  for (std::size_t i = 0; i < count; i += 8) {
    for (std::size_t c = 0; c < 8; ++c) out[i + c] = a[i + 7 - c];
  }
}

namespace {

void CopyTwice(const void* a, void* out, std::size_t bytes) {
  alignas(64) static std::uint8_t between[1 << 16];
  std::memcpy(between, a, bytes);
  benchmark::ClobberMemory();
  std::memcpy(out, between, bytes);
}

void JoinPair(const void* a, void* out, std::size_t bytes) {
  alignas(64) static std::uint8_t first[1 << 16];
  static bool isSecond = false;
  if (std::exchange(isSecond, !isSecond)) {
    std::memcpy(out, first, bytes);
    std::memcpy(static_cast<std::uint8_t*>(out) + bytes, a, bytes);
  } else {
    std::memcpy(first, a, bytes);
  }
}

/** The ring has room for ten frames: 100 ms. */
void PassThroughRing(const void* a, void* out, std::size_t bytes) {
  alignas(64) static std::uint8_t ring[10 << 14];
  static std::size_t at = 0;
  at = at + bytes < 10 * bytes ? at + bytes : 0;
  std::memcpy(out, ring + at, bytes);
  std::memcpy(ring + at, a, bytes);
}

}  // namespace

void DelayS16(const void* a, const void*, void* out, std::size_t count) { PassThroughRing(a, out, 2 * count); }
void DelayFloat(const void* a, const void*, void* out, std::size_t count) { PassThroughRing(a, out, 4 * count); }
void JoinPairS16(const void* a, const void*, void* out, std::size_t count) { JoinPair(a, out, 2 * count); }
void JoinPairFloat(const void* a, const void*, void* out, std::size_t count) { JoinPair(a, out, 4 * count); }
void CopyTwiceS16(const void* a, const void*, void* out, std::size_t count) { CopyTwice(a, out, 2 * count); }
void CopyTwiceFloat(const void* a, const void*, void* out, std::size_t count) { CopyTwice(a, out, 4 * count); }

}  // namespace bench
