/** Part of <vorn/Plugin.h>: the reserved parameter ids and the commands that blocks of the kit understand. */
#ifndef VORN_KIT_CONVENTIONS_H
#define VORN_KIT_CONVENTIONS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>

#include <vorn/Block.h>
#include <vorn/FIFO.h>

namespace vorn {

/** Parameter ids from here on belong to the kit; they can be read, not set. */
enum ReservedParameters : unsigned {
  RESERVED_PARAMETERS = 0xFFFFFF00,
  /** GetParameter answers the block's table, one parameter a text: see Parameters::Line for its fields. */
  PARAMETER_TABLE = 0xFFFFFF00,
  /** GetParameter answers one text an output, in index order: see StreamText. -20 from a block that makes no stream of its own. */
  PARAMETER_STREAMS = 0xFFFFFF01,
};

/** What Block::ioctl of a kit block understands. A block without the kit answers -20 to all of it. */
enum KitCommand : unsigned {
  KIT_ATTACH_PRODUCER = 0x564B0000,  ///< `arg` is the DataProducer* to read from, or null to let go of it. 0 or -20.
  KIT_ATTACH_CONSUMER = 0x564B0001,  ///< `arg` is the DataConsumer* to write to, or null to let go of it. 0 or -20.
  KIT_GET_VERSION = 0x564B0002,      ///< Answers KIT_VERSION. `arg` is not used.
  KIT_ATTACH_COUNTERS = 0x564B0003,  ///< `arg` is the BlockCounters* to count into, or null to let go of it. 0.

  // Between blocks of one route, on its thread, with a KitQuery.
  KIT_STREAM_ENDED =
      0x564B0010,  ///< "The stream into your input `index` is over. Is anything still held, in you or behind?"
  KIT_FRAME_COMING = 0x564B0011,  ///< "Will a frame still come from your output `index` in this cycle?"
  KIT_HOLD_BACK =
      0x564B0012,  ///< "I have frames for another cycle: send nothing through output `index` in the next one."
};

/** A question between neighbours. Answers are 1 for yes, 0 for no. */
struct KitQuery {
  std::size_t index;  ///< Of the endpoint of the block that is asked.
  int hops;           ///< Blocks that may still be asked because of it: no graph makes a question endless.
};

/**
 * Hands a block the FIFO that it reads (fifosource and its like) or writes (fifosink), or nullptr to take it away.
 *
 * Do it while the block's route is stopped. Take the FIFO away, or delete the block, before the FIFO is deleted.
 *
 * @return 0, or -20 when the block has no use for one.
 */
inline int AttachProducer(Block* block, DataProducer* producer) { return block->ioctl(KIT_ATTACH_PRODUCER, producer); }
inline int AttachConsumer(Block* block, DataConsumer* consumer) { return block->ioctl(KIT_ATTACH_CONSUMER, consumer); }

/**
 * What a block of the kit has done since it got these, for a host that shows how far its graph has come. Written by the
 * route's thread, for any to read without asking the route, which may be asleep in a device.
 */
struct BlockCounters {
  std::atomic<std::uint64_t> frames{0};   ///< With samples in them.
  std::atomic<std::uint64_t> samples{0};  ///< Given out at the first output; taken in, where there is no output.
  std::atomic<std::uint64_t> resets{0};   ///< One for every error frame of the route.

  /** By the one thread that writes. */
  static void Add(std::atomic<std::uint64_t>& count, std::uint64_t more) {
    count.store(count.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
  }
};

/**
 * Hands a block the counters of its host, which outlive it, or nullptr to take them away. Do it while the block's route
 * is stopped.
 *
 * @return 0, or -20 from a block without the kit.
 */
inline int AttachCounters(Block* block, BlockCounters* counters) { return block->ioctl(KIT_ATTACH_COUNTERS, counters); }

/**
 * The stamp to write a frame without a time with. A FIFO counts on from the stamp of a frame's first sample; from this
 * one it stays negative for ever, so that a reader sees that there is no time.
 */
constexpr long NO_FIFO_STAMP = std::numeric_limits<long>::min() / 2;

/** An empty frame that means something: it has 0 samples, and one of these in place of its time stamp. */
enum class Mark : long {
  NONE = -1,
  ENDED = std::numeric_limits<long>::min(),       ///< The stream is over: give out what you hold.
  PAUSED = std::numeric_limits<long>::min() + 1,  ///< Nothing comes this time: go on with what you have.
};

inline Mark MarkOf(const FrameBuffer& fb) {
  if (fb.samples != 0 || fb.timestamp > static_cast<long>(Mark::PAUSED)) return Mark::NONE;
  return static_cast<Mark>(fb.timestamp);
}
inline void SetMark(FrameBuffer& fb, Mark mark) {
  fb.samples = 0;
  fb.timestamp = static_cast<long>(mark);
}
/** Samples, or a mark. */
inline bool HasArrived(const FrameBuffer& fb) { return fb.samples != 0 || MarkOf(fb) != Mark::NONE; }

/** Asks the block at the other end of a link. @return its answer; -20 from a block without the kit. */
inline int AskPeer(const Endpoint& ep, KitCommand command, int& hops) {
  if (hops <= 0) return 0;
  const Endpoint* peer = ep.Peer();
  if (peer == nullptr) return 0;
  KitQuery query{peer->Index(), hops - 1};
  const int answer = peer->Owner()->ioctl(command, &query);
  hops = query.hops;
  return answer;
}

/**
 * Tells whether a frame may still reach this input in the running cycle, which a block with several inputs has to know:
 * it must wait for that frame, but not for ever. A block without the kit counts as one that passes on what it gets.
 */
inline bool IsFrameComing(const InputEndpoint& in, int& hops) {
  const int answer = AskPeer(in, KIT_FRAME_COMING, hops);
  if (answer >= 0) return answer != 0;
  const Endpoint* peer = in.Peer();
  if (peer->FB()->samples != 0) return true;
  for (const auto& [index, ep] : peer->Owner()->ActiveInEps()) {
    if (HasArrived(*ep->FB()) || IsFrameComing(*ep, hops)) return true;
  }
  return false;
}

}  // namespace vorn

#endif
