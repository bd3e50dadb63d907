/** Part of <vorn/Plugin.h>: the reserved parameter ids and the commands that blocks of the kit understand. */
#ifndef VORN_KIT_CONVENTIONS_H
#define VORN_KIT_CONVENTIONS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>

#include <vorn/Block.h>
#include <vorn/FIFO.h>
#include <vorn/kit/Interrupt.h>
#include <vorn/kit/Marks.h>

namespace vorn {

/** Parameter ids from here on belong to the kit; they can be read, not set. Read them through Route::GetParameter. */
enum ReservedParameters : unsigned {
  RESERVED_PARAMETERS = 0xFFFFFF00,
  /** GetParameter answers the block's table, one parameter a text: see ParameterLine for its fields. */
  PARAMETER_TABLE = 0xFFFFFF00,
  /** GetParameter answers one text an output, in index order: see StreamText. -20 from a block that makes no stream of its own. */
  PARAMETER_STREAMS = 0xFFFFFF01,
  /**
   * GetParameter answers why the block last refused something: a link, a start, a parameter, or to go on with a frame.
   * The texts are in the order of RefusalTexts; there is none where the block refused nothing since it was last linked
   * or started without a refusal.
   */
  PARAMETER_REFUSAL = 0xFFFFFF02,
};

/** The texts of PARAMETER_REFUSAL by place: see Refusal for what they say. One that says nothing is empty. */
enum RefusalTexts : std::size_t {
  REFUSAL_KIND = 0,   ///< What it is about: the number of an About.
  REFUSAL_INDEX = 1,  ///< Of the endpoint.
  REFUSAL_NAME = 2,   ///< Of the argument or parameter.
  REFUSAL_FIELD = 3,
  REFUSAL_GOT = 4,
  REFUSAL_TAKES = 5,
  REFUSAL_ADVICE = 6,
  REFUSAL_TEXT = 7,   ///< The whole line, as it is in the log.
  REFUSAL_NANOS = 8,  ///< When, in nanoseconds of the monotonic clock: which of several blocks was the last.
  REFUSAL_TEXTS = 9,  ///< How many there are.
};

/** What Block::ioctl of a kit block understands. A block without the kit answers -20 to all of it. */
enum KitCommand : unsigned {
  KIT_ATTACH_PRODUCER = 0x564B0000,  ///< `arg` is the DataProducer* to read from, or null to let go of it. 0 or -20.
  KIT_ATTACH_CONSUMER = 0x564B0001,  ///< `arg` is the DataConsumer* to write to, or null to let go of it. 0 or -20.
  KIT_GET_VERSION = 0x564B0002,      ///< Answers KIT_VERSION. `arg` is not used.
  KIT_ATTACH_COUNTERS = 0x564B0003,  ///< `arg` is the BlockCounters* to count into, or null to let go of it. 0.

  KIT_END_STREAM = 0x564B0004,  ///< Makes a source end. `arg` is not used. 0; -20 from a block that is not first.
  KIT_FOLLOW = 0x564B0005,      ///< Makes a source a follower: see FollowLoop. `arg` is not used. 0.

  KIT_INTERRUPT = 0x564B0006,  ///< Brings the block back from its waits: see InterruptBlock. `arg` is not used. 0.
  KIT_RESUME = 0x564B0007,     ///< Takes that back. `arg` is not used. 0.
  KIT_ATTACH_INTERRUPT = 0x564B0008,  ///< `arg` is the Interrupt* to obey, or null for the block's own. 0.
  KIT_MEASURE = 0x564B0009,           ///< Works out the readings that are worked out when asked. `arg` is not used. 0.

  KIT_REQUEST = 0x564B0010,  ///< Between blocks of one route, on its thread. `arg` is a KitRequest*.

  // From the route, on its thread. Neither allocates. 0.
  KIT_MEET = 0x564B0011,   ///< An edit has put another block behind or before this one. `arg` is a KitNeighbour*.
  KIT_SHARE = 0x564B0012,  ///< Block::Board() is another one now. `arg` is not used.
};

/** Which endpoint has a new block at the other end of its link, whose stream goes on. */
struct KitNeighbour {
  bool input;
  std::size_t index;
};

/** A request from the block behind an output. */
struct KitRequest {
  std::size_t output;  ///< Of the block that hears it.
  Request request;
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
  std::atomic<std::uint64_t> losses{0};   ///< Times that it lost something and went on: PARAMETER_REFUSAL says what.
  std::atomic<bool> fadedOut{false};      ///< It stopped its route by FRAME_FADED_OUT.
  std::atomic<bool> deleted{false};       ///< The block is gone, whoever deleted it.
  std::atomic<std::uint64_t> cuts{0};     ///< Times that it was a source and ended because it was interrupted.

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
 * The time stamp for a frame without a time, when it is put into a FIFO. A FIFO counts on from the stamp of a frame's
 * first sample; from this one it stays negative for ever, so that a reader sees that there is no time.
 */
constexpr long NO_FIFO_STAMP = std::numeric_limits<long>::min() / 2;

/**
 * Interrupts a block: what it waits for, a descriptor, a FIFO (in FIFO::Take and FIFO::Put) or a device, it waits for
 * no longer, until it was stopped or ResumeBlock() is called.
 *
 * - A source ends its stream: everything that it has read goes through, as after EndStream().
 * - A block in the middle takes what is there.
 * - A sink goes on with what needs no waiting. From the first wait on it takes nothing more; what it cannot get rid of
 *   is lost, and it says so: see BlockCounters::losses.
 * - A block that is about to start refuses to, also in the middle of it: a named pipe that nobody opens.
 *
 * A start that was refused is no stop: ResumeBlock() before the next one. While the block exists; from any thread.
 *
 * @return 0, or -20 from a block without the kit.
 */
inline int InterruptBlock(Block* block) { return block->ioctl(KIT_INTERRUPT, nullptr); }
inline int ResumeBlock(Block* block) { return block->ioctl(KIT_RESUME, nullptr); }

/**
 * Gives a block an Interrupt of its host in place of its own, or nullptr to take it away. It outlives the block, and a
 * stop does not clear it: for a host under which somebody else may delete the block, or start it again. It does not
 * reach a wait in a FIFO: there the host calls FIFO::InterruptReading and its like itself. While the route is stopped.
 *
 * @return 0, or -20 from a block without the kit.
 */
inline int AttachInterrupt(Block* block, Interrupt* interrupt) { return block->ioctl(KIT_ATTACH_INTERRUPT, interrupt); }

/**
 * Makes a source say at its next frame that its stream is over, as if there were no more: what the blocks behind it
 * hold still comes out, and the route ends when all its sources have ended. A source that waits comes back for it:
 * this is InterruptBlock() for sources. From any thread.
 *
 * @return 0, or -20 from a block that is not first or without the kit.
 */
inline int EndStream(Block* block) { return block->ioctl(KIT_END_STREAM, nullptr); }

/**
 * Says of a source that it reads what goes round in a loop of FIFOs: it keeps no block and no route going once all
 * other sources have ended. Do it while the block's route is stopped.
 *
 * @return as EndStream.
 */
inline int FollowLoop(Block* block) { return block->ioctl(KIT_FOLLOW, nullptr); }

constexpr int MAX_HOPS = 100000;

/**
 * Whether a frame is on its way to this input in the running cycle: somewhere before it one waits to be taken.
 * @param hops links that may still be looked at, so that no graph makes this endless.
 */
inline bool MayArrive(const InputEndpoint& in, int& hops) {
  const Endpoint* peer = in.Peer();
  if (--hops < 0 || peer == nullptr) return false;
  if (HasArrived(*peer->FB())) return true;
  for (const auto& [index, ep] : peer->Owner()->ActiveInEps()) {
    if (HasArrived(*ep->FB()) || MayArrive(*ep, hops)) return true;
  }
  return false;
}

}  // namespace vorn

#endif
