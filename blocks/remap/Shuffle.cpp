#include "Shuffle.h"

#include <algorithm>
#include <numeric>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

constexpr std::size_t NONE = SIZE_MAX;
constexpr std::size_t MOST_BYTES = 256;  // of an instant that leaves, which bounds the shuffles

#if defined(__x86_64__)
bool CanShuffle() { return __builtin_cpu_supports("avx2"); }

template <bool ADDS>
[[gnu::target("avx2")]] void ShufflePiece(const std::uint8_t* low, const std::uint8_t* high, std::size_t step,
                                          const std::uint8_t* mask, std::uint8_t* to, std::size_t toStep, long count) {
  const __m256i places = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(mask));
  const std::ptrdiff_t between = high - low;
#pragma GCC unroll 4
  for (long i = 0; i < count; ++i, low += step, to += toStep) {
    auto* out = reinterpret_cast<__m256i*>(to);
    const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(low));
    const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(low + between));
    __m256i bytes = _mm256_shuffle_epi8(_mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1), places);
    if (ADDS) bytes = _mm256_or_si256(bytes, _mm256_loadu_si256(out));
    _mm256_storeu_si256(out, bytes);
  }
}
#else
bool CanShuffle() { return false; }

template <bool ADDS>
void ShufflePiece(const std::uint8_t*, const std::uint8_t*, std::size_t, const std::uint8_t*, std::uint8_t*,
                  std::size_t, long) {}
#endif

}  // namespace

Shuffle::Shuffle(std::vector<Place> newInstant, const Sources& sources)
    : instant(std::move(newInstant)), inputs(sources) {
  for (const Place& place : instant) {
    const bool isNew = place.input != SILENCE && std::find(used.begin(), used.end(), place.input) == used.end();
    if (isNew) used.push_back(place.input);
  }
  const bool isLinked = std::all_of(used.begin(), used.end(), [&](std::size_t i) { return inputs[i].step != 0; });
  if (used.empty() || !isLinked || instant.size() > MOST_BYTES || !CanShuffle()) return;
  period = 32 / std::gcd(32L, static_cast<long>(instant.size()));
  for (const std::size_t input : used) {
    while (BytesOfPeriod(inputs[input].step) < 16) period *= 2;
  }
  for (std::size_t piece = 0; piece < BytesOfPeriod(instant.size()) / 32; ++piece) {
    for (const std::size_t input : used) AddSteps(piece, input);
    if (steps.empty() || steps.back().piece != piece) AddStep(piece, used[0]);  // of silence
  }
}

void Shuffle::AddStep(std::size_t piece, std::size_t input) {
  steps.push_back({piece, input, {0, 0}, {}});
  steps.back().mask.fill(128);
}

void Shuffle::AddSteps(std::size_t piece, std::size_t input) {
  const std::size_t begin = steps.size();
  const std::size_t last = BytesOfPeriod(inputs[input].step) - 16;
  for (std::size_t half = 0; half < 2; ++half) {
    std::array<std::size_t, 16> missing;  // the places of its bytes in the period of the input
    for (std::size_t b = 0; b < 16; ++b) {
      const std::size_t at = 32 * piece + 16 * half + b;
      const Place& place = instant[at % instant.size()];
      missing[b] = place.input == input ? at / instant.size() * inputs[input].step + place.byte : NONE;
    }
    // Each step has the 16 bytes from the first one that is missing, but none behind the period.
    for (std::size_t s = begin;; ++s) {
      const std::size_t first = *std::min_element(missing.begin(), missing.end());
      if (first == NONE) break;
      if (s == steps.size()) AddStep(piece, input);
      steps[s].first[half] = std::min(first, last);
      for (std::size_t b = 0; b < 16; ++b) {
        if (missing[b] - steps[s].first[half] >= 16) continue;
        steps[s].mask[16 * half + b] = static_cast<std::uint8_t>(missing[b] - steps[s].first[half]);
        missing[b] = NONE;
      }
    }
  }
}

long Shuffle::Move(const Sources& sources, std::uint8_t* to, long samples) const {
  if (period == 0) return 0;
  for (const std::size_t input : used) {
    if (sources[input].step != inputs[input].step) return 0;
  }
  std::size_t before = NONE;
  for (const Step& step : steps) {
    const Source& source = sources[step.input];
    const auto shuffle = std::exchange(before, step.piece) == step.piece ? ShufflePiece<true> : ShufflePiece<false>;
    shuffle(source.data + step.first[0], source.data + step.first[1], BytesOfPeriod(source.step), step.mask.data(),
            to + 32 * step.piece, BytesOfPeriod(instant.size()), samples / period);
  }
  return samples / period * period;
}
