/**
 * Moves the bytes of channels, 32 at a time.
 *
 * After a few instants, the period, bytes come from the same places again. Each 32 bytes of a period that leave are
 * made by one shuffle or several: a shuffle takes 16 bytes of an input for either half, and puts them where they
 * belong. Compilers make shuffles only of places that are known to them, so they are written with the instructions of
 * the processor here.
 */
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <vorn/Block.h>

class Shuffle {
 public:
  static constexpr std::size_t SILENCE = vorn::Endpoint::COUNT;
  /** Where a byte comes from: an input, or SILENCE, and a byte of an instant of it. */
  struct Place {
    std::size_t input;
    std::size_t byte;
  };
  /** The frame of an input. */
  struct Source {
    const std::uint8_t* data = nullptr;
    std::size_t step = 0;  // bytes of an instant; 0 where the input has no link
  };
  using Sources = std::array<Source, vorn::Endpoint::COUNT>;

  /** Moves nothing. */
  Shuffle() = default;
  /** @param newInstant where each byte of an instant that leaves comes from. Sources are known by their steps alone. */
  Shuffle(std::vector<Place> newInstant, const Sources& sources);

  /** @return how many instants it moved of so many: whole periods, and none on a processor without AVX2. */
  long Move(const Sources& sources, std::uint8_t* to, long samples) const;

 private:
  struct Step {
    std::size_t piece;  // its first step sets the 32 bytes, the others add to them
    std::size_t input;
    std::size_t first[2];               // of the 16 bytes in the period, for each half
    std::array<std::uint8_t, 32> mask;  // for each byte, which one of its half; 128 for none
  };

  void AddStep(std::size_t piece, std::size_t input);
  void AddSteps(std::size_t piece, std::size_t input);
  std::size_t BytesOfPeriod(std::size_t step) const { return step * static_cast<std::size_t>(period); }

  std::vector<Place> instant;
  Sources inputs{};
  std::vector<std::size_t> used;  // inputs, each of them once
  long period = 0;                // instants; 0: none
  std::vector<Step> steps;
};
