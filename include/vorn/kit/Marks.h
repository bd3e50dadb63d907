/** Part of <vorn/Plugin.h>: what a block of the kit sends where it has no samples, and what it asks of those before it. */
#ifndef VORN_KIT_MARKS_H
#define VORN_KIT_MARKS_H

#include <cstdint>
#include <limits>

#include <vorn/Block.h>

namespace vorn {

/** An empty frame that means something: it has 0 samples, and one of these in place of its time stamp. */
enum class Mark : long {
  NONE = -1,
  ENDED = std::numeric_limits<long>::min(),        ///< Nothing more will come.
  NOTHING = std::numeric_limits<long>::min() + 1,  ///< Nothing comes in this cycle.
};

inline Mark MarkOf(const FrameBuffer& fb) {
  if (fb.samples != 0 || fb.timestamp > static_cast<long>(Mark::NOTHING)) return Mark::NONE;
  return static_cast<Mark>(fb.timestamp);
}
inline void SetMark(FrameBuffer& fb, Mark mark) {
  fb.samples = 0;
  fb.timestamp = static_cast<long>(mark);
}
/** Samples, or a mark. */
inline bool HasArrived(const FrameBuffer& fb) { return fb.samples != 0 || MarkOf(fb) != Mark::NONE; }

/**
 * What goes upstream, against the samples, from an input to the block that fills it. A block passes on what it hears to
 * all of its own inputs, once a cycle; the source acts on it. One bit each.
 */
enum class Request : std::uint32_t {
  HOLD = 1,   ///< "I have enough for the next cycle: send nothing in it." Every block on the way obeys.
  SPARE = 2,  ///< "My other inputs are behind this one." A source skips the next cycle unless it also hears NEED.
  NEED = 4,   ///< "This input is behind my others."
  DONE = 8,   ///< "I take nothing any more." A source whose outputs all heard it has ended.
  LEADS = 16  ///< Changes nothing: "does a source stand behind this that keeps the route alive?"
};
constexpr std::uint32_t Bit(Request request) { return static_cast<std::uint32_t>(request); }

}  // namespace vorn

#endif
