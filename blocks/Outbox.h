// What a block that runs behind its input has ready to leave: full frames, with the times of the samples that came, and
// at the end of the stream exactly as many samples as came, or as the ratio of the two rates makes of them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include <vorn/Plugin.h>

/**
 *     Process(): box.Count(In()); box.Put(what became of it, samples); box.Send(Out(), false);
 *     Drain(atEnd): while (atEnd && box.Misses(Out())) { feed silence, Put what comes } box.Send(Out(), atEnd);
 *
 * Real time: Open allocates; Put does only where more waits than ever before.
 */
class Outbox {
 public:
  /** @param atOnce the most samples in one Put. @param burst how many usually wait at most, beyond two frames. */
  void Open(const vorn::FrameBuffer& in, const vorn::FrameBuffer& out, long atOnce, long burst) {
    rateIn = in.rate;
    rateOut = out.rate;
    encoded.resize(static_cast<std::size_t>(atOnce) * out.channels * vorn::BytesPerSample(out.format));
    queue.Open(out, 2 * (Rescale(in.samplesPerFrame, rateIn, rateOut) + out.samplesPerFrame) + atOnce + burst);
    Begin(0);
  }

  /** A new stream. @param late so many samples of the first ones that are put do not belong to it. */
  void Begin(long late) {
    queue.Clear();
    toDrop = late;
    received = sent = 0;
    isStamped = false;
  }

  /** round(samples * to / from), for any count of samples. */
  static long Rescale(long samples, std::uint32_t from, std::uint32_t to) {
    const auto count = static_cast<std::uint64_t>(samples);
    return static_cast<long>(count / from * to + (count % from * to + from / 2) / from);
  }

  /** A frame of the stream came in. */
  void Count(const vorn::FrameBuffer& in) {
    if (in.timestamp >= 0) stampOfStart = in.timestamp - received * 1000000 / rateIn;
    isStamped = isStamped || in.timestamp >= 0;
    received += in.samples;
  }

  /** Samples that are ready, in the output's own format. Throws where more come than leave. */
  void Put(vorn::FrameBuffer ready) {
    const long dropped = std::min(ready.samples, toDrop);
    toDrop -= dropped;
    ready.samples -= dropped;
    ready.data += static_cast<std::size_t>(dropped) * ready.channels * vorn::BytesPerSample(ready.format);
    if (queue.Append(ready)) return;
    throw std::runtime_error("more samples wait for frames of " + std::to_string(ready.samplesPerFrame) +
                             " than memory may take; make them longer");
  }
  /** Samples that are ready, interleaved. @param out describes the output. */
  template <class Real>
  void Put(const Real* from, long samples, vorn::FrameBuffer out) {
    vorn::Encode(out.format, from, encoded.data(), static_cast<std::size_t>(samples) * out.channels);
    out.data = encoded.data();
    out.samples = samples;
    Put(out);
  }

  bool HoldsSamples() const { return sent < Total(); }
  /** Filters give much at once: what makes frames of its own leaves before more comes in. */
  bool HoldsFrame(const vorn::FrameBuffer& out) const { return queue.Samples() >= out.samplesPerFrame; }
  /** True while the end of the stream needs more samples put for its next frame. */
  bool Misses(const vorn::FrameBuffer& out) const {
    return queue.Samples() < std::min(out.samplesPerFrame, Total() - sent);
  }

  /** Fills the output with the next full frame, at the end with what is left. Without as much it stays empty. */
  void Send(vorn::FrameBuffer& out, bool atEnd) {
    const long count = atEnd ? std::min(out.samplesPerFrame, Total() - sent) : out.samplesPerFrame;
    if (count <= 0 || queue.Samples() < count) return;
    const vorn::FrameBuffer front = queue.Front(count);
    std::memcpy(out.data, front.data, vorn::FrameBytes(front));
    out.samples = count;
    out.timestamp = isStamped ? stampOfStart + sent * 1000000 / rateOut : -1;
    queue.Drop(count);
    sent += count;
  }

 private:
  long Total() const { return Rescale(received, rateIn, rateOut); }

  vorn::InputQueue queue;
  std::vector<std::uint8_t> encoded;
  std::uint32_t rateIn = 1;
  std::uint32_t rateOut = 1;
  long toDrop = 0;
  long received = 0;  // samples of the stream so far
  long sent = 0;
  bool isStamped = false;
  long stampOfStart = 0;  // the time of the stream's first sample
};
