/** Part of <vorn/Plugin.h>: what all blocks of the kit in one route share, whether links join them or not. */
#ifndef VORN_KIT_ROUTE_BOARD_H
#define VORN_KIT_ROUTE_BOARD_H

#include <atomic>
#include <cstdint>

namespace vorn {

/**
 * Grows when a layout of the kit or what its blocks say to each other changes. Blocks, the library and hosts work
 * together only where they were built with the same one.
 */
constexpr std::uint32_t KIT_VERSION = 5;

/**
 * Counts from which a source knows that its route is over, and whether the route failed. The route makes one and hands
 * it to every block (Block::Board).
 *
 * Thread: the route's own, but for `failed`.
 */
struct RouteBoard {
  const std::uint32_t kitVersion = KIT_VERSION;  ///< What the library was built with.

  /** Sources by what they mean for the end of the route: it waits for drivers, and followers end with them. */
  long drivers = 0;
  long runningDrivers = 0;  ///< Those of them that have not ended.
  long followers = 0;       ///< Sources that only bring back what the others sent, round a loop.
  long runningFollowers = 0;
  long holders = 0;       ///< Blocks that hold samples which are still to come out.
  long spoilt = 0;        ///< Blocks that could not undo their Prepare: as long as there is one, no block starts.
  long foreignLinks = 0;  ///< Ends of links that join a block of the kit to one without it.
  long pacers = 0;        ///< Linked blocks that wait for something outside of the route: a device, a FIFO.

  unsigned long moves = 0;  ///< Grows whenever a block works on samples, or learns that a stream is over.
  unsigned long links = 0;  ///< Grows whenever a link of a block of the kit is made or deleted.

  /**
   * What the blocks have made is not to pass for a whole: a file does not come to its place. The library sets it before
   * it stops the blocks for an error, and where one of them did not start, and clears it at the next start; a host sets
   * it before it ends or stops the route because something else failed.
   */
  std::atomic<bool> failed{false};

  /** Whether no source has anything more to send. */
  bool HasEnded() const {
    return runningDrivers == 0 && drivers + followers > 0 && (drivers > 0 || runningFollowers == 0);
  }
};

}  // namespace vorn

#endif
