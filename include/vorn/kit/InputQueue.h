/** Part of <vorn/Plugin.h>: samples of one input that wait for those of another. */
#ifndef VORN_KIT_INPUT_QUEUE_H
#define VORN_KIT_INPUT_QUEUE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include <vorn/Block.h>

namespace vorn {

/**
 * Holds what came into an input until the other inputs of the block have as much.
 *
 * Samples lie in one piece, so that a block reads them like a frame of a link. Real time: Open makes the room that is
 * enough in everyday graphs; Append and PadTo allocate only where more waits than ever before.
 */
class InputQueue {
 public:
  static constexpr std::size_t MOST_BYTES = std::size_t{1} << 28;

  /** Makes room for `samples` samples of this stream, and is empty. The memory is not touched before it is used. */
  void Open(const FrameBuffer& stream, long samples) {
    head = stream;
    sampleBytes = stream.channels * BytesPerSample(stream.format);
    capacity = samples;
    Clear();
    storage.reset(new std::uint8_t[static_cast<std::size_t>(samples) * sampleBytes]);
  }
  bool IsOpen() const { return storage != nullptr; }
  void Clear() {
    first = head.samples = 0;
    knownStamp = -1;
  }
  long Samples() const { return head.samples; }

  /** @return false when more than MOST_BYTES and more than Open made room for would wait. */
  bool Append(const FrameBuffer& frame) {
    std::uint8_t* to = Room(frame.samples);
    if (to == nullptr) return false;
    std::memcpy(to, frame.data, Bytes(frame.samples));
    if (frame.timestamp >= 0 || head.samples == 0) {
      knownStamp = frame.timestamp;
      sinceKnown = -head.samples;
    }
    head.samples += frame.samples;
    return true;
  }

  /** Fills up with silence, which is zero bytes in every format, to at least `samples`. @return as Append. */
  bool PadTo(long samples) {
    const long missing = samples - head.samples;
    if (missing <= 0) return true;
    std::uint8_t* to = Room(missing);
    if (to == nullptr) return false;
    std::memset(to, 0, Bytes(missing));
    head.samples = samples;
    return true;
  }

  /** The oldest `samples` samples as a frame; there must be as many. Valid until the next Append, PadTo or Drop. */
  FrameBuffer Front(long samples) const {
    FrameBuffer frame = head;
    frame.data = storage.get() + Bytes(first);
    frame.samples = samples;
    frame.timestamp = StampOfHead();
    return frame;
  }

  /** Forgets the oldest samples. */
  void Drop(long samples) {
    first += samples;
    head.samples -= samples;
    sinceKnown += samples;
    if (head.samples == 0) first = 0;
  }

 private:
  long StampOfHead() const {
    if (knownStamp < 0 || head.rate == 0) return -1;
    return std::max(-1L, knownStamp + sinceKnown * 1000000 / head.rate);
  }

  std::size_t Bytes(long samples) const { return static_cast<std::size_t>(samples) * sampleBytes; }

  std::uint8_t* Room(long samples) {
    if (head.samples + samples > capacity && !Grow(head.samples + samples)) return nullptr;
    if (first + head.samples + samples > capacity) {
      std::memmove(storage.get(), storage.get() + Bytes(first), Bytes(head.samples));
      first = 0;
    }
    return storage.get() + Bytes(first + head.samples);
  }

  bool Grow(long samples) {
    if (Bytes(samples) > MOST_BYTES) return false;
    capacity = std::max(samples, 2 * capacity);
    std::unique_ptr<std::uint8_t[]> larger(new std::uint8_t[Bytes(capacity)]);
    std::memcpy(larger.get(), storage.get() + Bytes(first), Bytes(head.samples));
    storage = std::move(larger);
    first = 0;
    return true;
  }

  FrameBuffer head;  // describes the stream; `samples` is the count of what waits here
  std::size_t sampleBytes = 0;
  long capacity = 0;
  long first = 0;  // the oldest sample's place in the storage
  // Time stamps are counted from the newest one that came, so that roundings never add up.
  long knownStamp = -1;
  long sinceKnown = 0;  // samples from the one that it belongs to, to the oldest here
  std::unique_ptr<std::uint8_t[]> storage;
};

}  // namespace vorn

#endif
