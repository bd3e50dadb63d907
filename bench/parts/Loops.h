// Hand-written loops that do what standard blocks do, to the same rounding: the limits of these blocks.
#pragma once

#include <cstddef>

namespace bench {

/** `a` and `b` come in, `out` leaves; `b` and the second output only where a block has two. Counts are of all channels. */
using Loop = void (*)(const void* a, const void* b, void* out, std::size_t count);

void GainS16(const void* a, const void* b, void* out, std::size_t count);
void GainFloat(const void* a, const void* b, void* out, std::size_t count);
void MixS16(const void* a, const void* b, void* out, std::size_t count);
void MixFloat(const void* a, const void* b, void* out, std::size_t count);
void S16ToFloat(const void* a, const void* b, void* out, std::size_t count);
void FloatToS16(const void* a, const void* b, void* out, std::size_t count);
void SwapS16Pairs(const void* a, const void* b, void* out, std::size_t count);
void TurnFloatEights(const void* a, const void* b, void* out, std::size_t count);
/** Into the memory of a delay of ten frames, in exchange for the oldest one. */
void DelayS16(const void* a, const void* b, void* out, std::size_t count);
void DelayFloat(const void* a, const void* b, void* out, std::size_t count);
/** Keeps every other frame to make one of it and the next. */
void JoinPairS16(const void* a, const void* b, void* out, std::size_t count);
void JoinPairFloat(const void* a, const void* b, void* out, std::size_t count);
/** From `a` to some other memory, and from there to `out`: as much as a tee with two outputs. */
void CopyTwiceS16(const void* a, const void* b, void* out, std::size_t count);
void CopyTwiceFloat(const void* a, const void* b, void* out, std::size_t count);

}  // namespace bench
